/// The portal-management service of the HelionPromote module, served through the host's
/// multiplexed RPC server under the name "SdpPromoteService".

namespace cpp corvid.rpc.thrift
namespace py helion_promote

/// One running process.
struct ProcessInfoEx {
    /// Process id.
    1: i64 pid
    /// Process name.
    2: string procName
    /// Full path of the executable.
    3: string procPath
}

/// Reply of the process queries.
struct ProcessData {
    /// Result code, 0 on success.
    1: i64 code
    /// Result text, "Success" on success.
    2: string message
    /// The processes found; an empty list when none.
    3: list<ProcessInfoEx> processInfo
}

service SdpPromoteService {
    /// Verifies a signed zip package and replaces a portal directory with its contents.
    /// param: {"srcZip": path, "portalDir": name, "signFile": path}; returns the JSON envelope.
    string updatePortal(1: string param)

    /// Moves the resource files of a directory into a portal directory, then removes the source.
    /// param: {"srcDir": path, "portalDir": name}; returns the JSON envelope.
    string copyPortalDir(1: string param)

    /// Removes portal directories. param: {"portalDirs": [name, ...]}; returns the JSON envelope.
    string delPortalDir(1: string param)

    /// Information on one process.
    ProcessData getProcessData(1: i64 pid)

    /// Information on all processes.
    ProcessData getAllProcessData()

    /// Ends a running diagnosis tool and starts it anew in the background.
    bool StartDiagnosisTool()

    /// The same as StartDiagnosisTool.
    bool reLaunchTool()

    /// Liveness probe: always true.
    bool IsRpcStatusNormal()
}
