// What became of a call to the client library, as a word or two.
#pragma once

#include <typeinfo>

#include "SensorError.h"
#include "TestFetch.h"

/// "done", or which error was thrown: NoAgent is ZTCNoAgentError. One that is no ZTCSensorError passes.
template <class Call>
std::string clientOutcomeOf(const Call& acrCall) {
    try {
        acrCall();
        return "done";
    } catch (const ZTCRefusedError& lrError) {
        return "Refused " + std::to_string(lrError.getCode());
    } catch (const ZTCPipesTakenError& lrError) {
        return "PipesTaken " + std::to_string(lrError.getHolder());
    } catch (const ZTCSensorError& lrError) {
        const std::string lName = typeid(lrError).name();  // 15ZTCNoAgentError
        return lName.substr(5, lName.size() - 10);
    }
}
