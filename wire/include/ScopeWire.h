// What stands between the agent and its sensor, for both of them: the header and the codes of the messages on
// the pipes, and the files of the runtime directory (docs/protocol.md).
#pragma once

#include <cstdint>

// ---- What every message begins with: the magic, a tag and the length of the body, a u32 each

inline constexpr std::uint32_t ZTWireMagic = 0x56525831;  ///< "VRX1"
inline constexpr unsigned int ZTWireTagAt = 4;
inline constexpr unsigned int ZTWireLengthAt = 8;
inline constexpr unsigned int ZTWireHeaderSize = 12;

/// What the body of a command has at the most, in bytes.
inline constexpr unsigned int ZTWireMaxCommand = 65536;

// ---- Codes

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

// ---- Files, behind the name of the runtime directory

inline constexpr char ZTWireCommandPipe[] = "/vrxscacmd.fifo";
inline constexpr char ZTWireOutputPipe[] = "/vrxscaout.fifo";
inline constexpr char ZTWirePidFile[] = "/vrx-sca.pid";
inline constexpr char ZTWireSensorPidFile[] = "/vrx-sn.pid";
inline constexpr char ZTWireStatistics[] = "/vrx-sca.stats";
inline constexpr char ZTWireLibraryStatistics[] = "/libdfc-fchost.stats";
