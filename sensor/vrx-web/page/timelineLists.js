// What lies over the lanes as lists below them: for the keyboard, for those who hear the page, and for paper.

import {changeItem} from './changes.js';
import {rangeText} from './describe.js';
import {el, fill} from './dom.js';
import {firstOf} from './lists.js';
import {sentence} from './sentences.js';
import {now} from './times.js';
import {linkTo, stateMark} from './widgets.js';
import {count} from './words.js';

const most = 12;
const mostChanges = 100;

const bandItem = (band) =>
    el('li', {'data-band': band.id}, stateMark(band.state), ' ',
       linkTo('incident', {}, band.id, `${band.id} `, sentence(band.title)));

const holeItem = (hole) =>
    el('li', {'data-hole': ''}, rangeText(hole.first, Math.min(hole.last, now())), ': ', hole.text);

export class TimelineLists {
    constructor() {
        this.incidents = el('section', {'aria-label': 'Incidents in this time'});
        this.holes = el('section', {'aria-label': 'What is not known'});
        this.changes = el('details', {hidden: true});
        this.element = el('div', {class: 'timeline-lists'}, this.incidents, this.holes, this.changes);
        this.shown = '';
    }

    show(model, scale) {
        const bands = model.bands.filter((band) => scale.covers(band.first, band.last))
                          .sort((a, b) => b.ongoing - a.ongoing || b.first - a.first);
        const holes = model.holes.filter((hole) => scale.covers(hole.first, hole.last));
        const changes = model.changes.filter((change) => scale.covers(change.at, change.at));
        // Made anew only when there is something else to show: what is focused or open stays so.
        const shown = JSON.stringify(
            [bands.map((band) => [band.id, band.state, band.title]), holes, changes.length, changes[0]?.time]);
        if (shown === this.shown) {
            return;
        }
        this.shown = shown;
        fillList(this.incidents, 'Incidents in this time', bands.map(bandItem));
        fillList(this.holes, 'Not all is known', holes.map(holeItem));
        this.changes.hidden = changes.length === 0;
        fill(
            this.changes, el('summary', {}, `${count(changes.length, 'change')} in this time`),
            el('ul', {class: 'small'}, firstOf(changes.slice(0, mostChanges).map(changeItem), most),
               changes.length > mostChanges &&
                   el('li', {class: 'note'}, `and ${changes.length - mostChanges} more: zoom in`)));
    }
}

function fillList(section, title, items) {
    section.hidden = items.length === 0;
    fill(section, el('h2', {}, title), el('ul', {}, firstOf(items, most)));
}
