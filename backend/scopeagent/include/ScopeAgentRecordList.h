// The records of one adapter, in the order of their creation.
#pragma once

class ZTCScopeAgentSystem;

class ZTCScopeAgentRecordList {
  public:
    ZTCScopeAgentRecordList(unsigned int aBoard, ZTCScopeAgentSystem* /*apSystem*/) : mBoard(aBoard) {}
    virtual ~ZTCScopeAgentRecordList() = default;

    unsigned int getBoard() const { return mBoard; }

  private:
    unsigned int mBoard;
};
