// The codes of commands and responses, as they stand on the pipes (docs/protocol.md).
#pragma once

/// The first byte of a command.
enum ZTEScopeAgentCommand : unsigned char {
    ZTSSCAC_StartScope = 0,
    ZTSSCAC_GetScopeData = 1,
    ZTSSCAC_Stop = 2,
    ZTSSCAC_RegisterTargets = 3,
    ZTSSCAC_ShutDown = 4,
    ZTSSCAC_CollectionPeriod = 5,
};
inline constexpr unsigned int ZTSSCAC_Count = 6;

/// The first byte of a response.
enum ZTEScopeAgentResponse : unsigned char {
    ZTSSCAR_Success = 0,    ///< an i32 follows, 0
    ZTSSCAR_Failure = 1,    ///< a u16 follows, a failure code
    ZTSSCAR_ScopeData = 2,  ///< the collected records follow
};

/// Why a command was refused.
enum ZTEScopeAgentFailure : unsigned short {
    ZTSSCAE_BadArgument = 6,
    ZTSSCAE_RegistrationFailed = 9,
};
