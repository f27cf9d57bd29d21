// keygen: a key pair written where asked, never over existing files unless forced, never half.
#include <boost/filesystem.hpp>
#include <iostream>
#include <memory>

#include "tools/lib/FileIo.h"
#include "tools/lib/OpenSslKeys.h"
#include "tools/portal/Commands.h"

namespace helion::portal {

namespace {

namespace fs = boost::filesystem;
using tools::ToolError;

struct KeygenArgs {
    std::string outDir, privatePath, publicPath;
    bool force = false;
};

void refuseOverwrite(const std::string& path, bool force) {
    boost::system::error_code error;
    if (!force && fs::exists(path, error)) {
        throw ToolError("'" + path + "' exists; pass --force to replace it");
    }
}

// Where writing to path lands: links at the end followed (even to a file not there yet), the
// directories resolved as far as they exist.
fs::path writtenFile(fs::path path) {
    constexpr int kMaxHops = 40;
    boost::system::error_code error;
    for (int hop = 0; hop < kMaxHops && fs::is_symlink(path, error); ++hop) {
        const fs::path target = fs::read_symlink(path, error);
        path = target.is_absolute() ? target : fs::absolute(path).parent_path() / target;
    }
    return fs::weakly_canonical(fs::absolute(path), error);
}

// Both keys in one file would leave only the public one: the private key would be lost.
void refuseSameFile(const std::string& privatePath, const std::string& publicPath) {
    boost::system::error_code error;
    if (writtenFile(privatePath) == writtenFile(publicPath) ||
        fs::equivalent(privatePath, publicPath, error)) {
        throw ToolError("the private key '" + privatePath + "' and the public key '" + publicPath +
                        "' would be one file; give two different files");
    }
}

void keygen(KeygenArgs args) {
    if (!args.outDir.empty()) {
        boost::system::error_code error;
        fs::create_directories(args.outDir, error);
        if (error) {
            throw ToolError("cannot create '" + args.outDir + "': " + error.message());
        }
        args.privatePath = (fs::path(args.outDir) / "portal-private.pem").string();
        args.publicPath = (fs::path(args.outDir) / "portal-public.pem").string();
    }
    refuseSameFile(args.privatePath, args.publicPath);
    refuseOverwrite(args.privatePath, args.force);
    refuseOverwrite(args.publicPath, args.force);
    const tools::PkeyPtr key = tools::generatePortalKey();
    // Both written before either is put in place: a failure leaves neither.
    tools::StagedFile privateFile(args.privatePath, tools::privateKeyPem(key.get()), 0600);
    tools::StagedFile publicFile(args.publicPath, tools::publicKeyPem(key.get()), 0644);
    privateFile.commit();
    tools::RemoveOnFailure keyWithoutPair(args.privatePath);
    publicFile.commit();
    keyWithoutPair.release();
    std::cout << "private key: " << args.privatePath << " (keep it with whoever signs packages)\n"
              << "public key:  " << args.publicPath
              << " (build the module with -DHELION_PORTAL_PUBLIC_KEY=" << args.publicPath << ")"
              << std::endl;
}

}  // namespace

void addKeygen(CLI::App& app, Command& command) {
    auto args = std::make_shared<KeygenArgs>();
    auto* keygenCmd =
        app.add_subcommand("keygen", "Make an RSA-2048 key pair for signing packages");
    auto* outOption =
        keygenCmd->add_option("-o,--out-dir", args->outDir,
                              "Write portal-private.pem and portal-public.pem into this directory");
    auto* privateOption = keygenCmd->add_option("--private", args->privatePath, "Private key file");
    auto* publicOption = keygenCmd->add_option("--public", args->publicPath, "Public key file");
    privateOption->excludes(outOption)->needs(publicOption);
    publicOption->excludes(outOption)->needs(privateOption);
    keygenCmd->add_flag("-f,--force", args->force, "Replace existing key files");
    keygenCmd->callback([args, &command] {
        if (args->outDir.empty() && args->privatePath.empty()) {
            throw CLI::RequiredError("keygen needs -o DIR or --private FILE --public FILE");
        }
        command = [args] {
            keygen(*args);
            return 0;
        };
    });
}

}  // namespace helion::portal
