// Tells of incidents: the journal, and the command of --on-incident.
#pragma once

#include <optional>
#include <string>

#include "IncidentCommand.h"
#include "IncidentFinder.h"
#include "Journal.h"

/// One thread.
class ZTCIncidentTeller {
  public:
    /// aHost: whose history it is. acrJournal: where the journal listens; empty: there is none, and a line is
    /// said as ever.
    ZTCIncidentTeller(std::string aHost, const std::string& acrJournal, ZTCSnFigures& arFigures,
                      ZTCServiceLog& arLog, ZTCIncidentCommand& arCommand);

    void tell(const ZTSIncidentTelling& acrTelling, const ZTPortLabels& acrLabels);

  private:
    void tellCommand(std::string aJson);

    const std::string mHost;
    ZTCSnFigures& mrFigures;
    ZTCServiceLog& mrLog;
    ZTCIncidentCommand& mrCommand;
    const std::optional<ZTCJournal> mJournal;
};
