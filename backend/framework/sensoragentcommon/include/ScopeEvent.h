// An event kind: a category and a subcategory, both as they stand on the wire. Immutable.
#pragma once

class ZTCScopeEvent {
  public:
    ZTCScopeEvent(unsigned char aCategory, unsigned char aSubcategory)
        : mCategory(aCategory), mSubcategory(aSubcategory) {}
    virtual ~ZTCScopeEvent() = default;

    unsigned int getCategory() const { return mCategory; }
    unsigned int getSubcategory() const { return mSubcategory; }
    /// The kind's key: category in the high byte, subcategory in the low one.
    unsigned short getKeyform() const { return static_cast<unsigned short>(mCategory << 8 | mSubcategory); }

  private:
    const unsigned char mCategory;
    const unsigned char mSubcategory;
};
