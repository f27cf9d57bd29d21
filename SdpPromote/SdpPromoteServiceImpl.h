#pragma once
// The hand-written side of SdpPromoteService: portal management, process queries, the diagnosis
// tool and the liveness probe. Holds no mutable state, so RPC threads share it without a lock.

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "rpc/SdpPromoteService.h"

namespace corvid {

class SdpPromoteServiceImpl : public rpc::thrift::SdpPromoteServiceIf {
public:
    SdpPromoteServiceImpl();
    ~SdpPromoteServiceImpl() override = default;

    void updatePortal(std::string& _return, const std::string& param) override;
    void copyPortalDir(std::string& _return, const std::string& param) override;
    void delPortalDir(std::string& _return, const std::string& param) override;
    void getProcessData(rpc::thrift::ProcessData& _return, int64_t pid) override;
    void getAllProcessData(rpc::thrift::ProcessData& _return) override;
    bool StartDiagnosisTool() override;
    bool reLaunchTool() override;
    bool IsRpcStatusNormal() override;

    /// "SdpPromoteService": the name the processor is registered under.
    static const char* getServiceName();
    /// A new processor over a new implementation object.
    static std::shared_ptr<apache::thrift::TProcessor> getProcessor();

    /// Largest package and signature files updatePortal reads, in bytes (build options).
    static constexpr std::size_t kMaxPackageBytes = HELION_MAX_PACKAGE_BYTES;
    static constexpr std::size_t kMaxSignatureBytes = HELION_MAX_SIGNATURE_BYTES;
    /// Most bytes one copyPortalDir writes (build option).
    static constexpr std::uint64_t kMaxCopyBytes = HELION_MAX_COPY_BYTES;

private:
    // Tests reach the helpers below through this accessor.
    friend struct SdpPromoteServiceImplAccess;

    void getTrayAppPath(std::string& path);
    // The portal root and param bound into request; false, with result answered, when either
    // cannot be had.
    template <typename Request>
    bool openPortalRequest(const char* function, std::string& result, const std::string& param,
                           std::string& root, Request& request);
    bool verifySignature(const std::string& zipPath, const std::string& signPath);
    // The same check, handing out the package bytes that were verified: updatePortal extracts
    // exactly those, never the path again.
    bool verifySignature(const std::string& zipPath, const std::string& signPath,
                         std::string& zipData);
    bool unZipToFile(const std::string& zipPath, const std::string& destDir);
    // Extracts the archive held in zipData; zipPath only names it in the log.
    bool unZipToFile(const std::string& zipPath, const std::string& zipData,
                     const std::string& destDir);
    bool readFileContent(const std::string& path, std::string& out, bool binary);
    // Reads only a regular file of at most limit bytes.
    bool readFileContent(const std::string& path, std::string& out, bool binary, std::size_t limit);
    void copyPortalFileRecursion(const std::string& src, const std::string& dst);
    // A directory by device and inode.
    using DirectoryId = std::pair<uint64_t, uint64_t>;
    // What one copy carries down its walk: the directories it is inside of (a link back up the
    // tree is not followed, so every walk ends), the target's root (a link into it is not
    // followed either) and the bytes it may still write.
    struct CopyWalk {
        std::set<DirectoryId> onPath;
        DirectoryId target;
        std::uint64_t budget = kMaxCopyBytes;
    };
    // Returns how many files failed to copy.
    std::size_t copyPortalFileRecursion(const std::string& src, const std::string& dst,
                                        CopyWalk& walk);
    bool stringInList(const std::string& s, const std::vector<std::string>& list);

    /// Extensions of the resource files copyPortalDir moves in.
    std::vector<std::string> copyFilter_;
};

}  // namespace corvid
