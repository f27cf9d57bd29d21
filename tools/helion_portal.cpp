// helion-portal: makes signing keys, packs portal trees and signs and checks packages.
#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <boost/filesystem.hpp>
#include <cstdio>
#include <iostream>

#include "tools/cli/CommandLine.h"
#include "tools/lib/FileIo.h"
#include "tools/lib/OpenSslKeys.h"
#include "tools/lib/PackageSignature.h"
#include "tools/lib/PackageWriter.h"

namespace {

using namespace helion::tools;
using namespace helion::cli;

constexpr int kExitFailed = 1;
/// verify: the files or the key could not be read, so there is no verdict either way.
constexpr int kExitCannotCheck = 3;

void refuseOverwrite(const std::string& path, bool force) {
    boost::system::error_code error;
    if (!force && boost::filesystem::exists(path, error)) {
        throw ToolError("'" + path + "' exists; pass --force to replace it");
    }
}

namespace fs = boost::filesystem;

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

// A private key others can read may already be in their hands.
void warnIfReadableByOthers(const std::string& keyPath) {
    struct stat info {};
    if (::stat(keyPath.c_str(), &info) == 0 && (info.st_mode & (S_IRGRP | S_IROTH)) != 0) {
        char mode[8];
        std::snprintf(mode, sizeof(mode), "%04o", static_cast<unsigned>(info.st_mode & 07777));
        std::cerr << "helion-portal: warning: the private key '" << keyPath << "' has mode " << mode
                  << ": group or other users may read it; chmod 600 it" << std::endl;
    }
}

void keygen(const std::string& outDir, std::string privatePath, std::string publicPath,
            bool force) {
    if (!outDir.empty()) {
        boost::system::error_code error;
        fs::create_directories(outDir, error);
        if (error) {
            throw ToolError("cannot create '" + outDir + "': " + error.message());
        }
        privatePath = (boost::filesystem::path(outDir) / "portal-private.pem").string();
        publicPath = (boost::filesystem::path(outDir) / "portal-public.pem").string();
    }
    refuseSameFile(privatePath, publicPath);
    refuseOverwrite(privatePath, force);
    refuseOverwrite(publicPath, force);
    const PkeyPtr key = generatePortalKey();
    // Both written before either is put in place: a failure leaves neither.
    StagedFile privateFile(privatePath, privateKeyPem(key.get()), 0600);
    StagedFile publicFile(publicPath, publicKeyPem(key.get()), 0644);
    privateFile.commit();
    RemoveOnFailure keyWithoutPair(privatePath);
    publicFile.commit();
    keyWithoutPair.release();
    std::cout << "private key: " << privatePath << " (keep it with whoever signs packages)\n"
              << "public key:  " << publicPath
              << " (build the module with -DHELION_PORTAL_PUBLIC_KEY=" << publicPath << ")"
              << std::endl;
}

void pack(const std::string& dir, const std::string& out) {
    const PackSummary summary = packPortal(dir, out);
    std::cout << "packed " << summary.entries.size() << " files (" << summary.bytes
              << " bytes) into " << out << std::endl;
}

void sign(const std::string& keyPath, const std::string& package, std::string out) {
    if (out.empty()) {
        out = package + ".sig";
    }
    const PkeyPtr key = loadPrivateKey(keyPath);
    warnIfReadableByOthers(keyPath);
    writeFileAtomically(out, signPackageFile(package, key.get()));
    std::cout << "signed " << package << " -> " << out << std::endl;
}

int verify(const std::string& keyPath, const std::string& package, const std::string& signature) {
    Verdict verdict;
    try {
        const PkeyPtr key = loadPublicKey(keyPath);
        verdict = verifyPackageFile(package, signature, key.get());
    } catch (const ToolError& error) {
        std::cerr << "helion-portal: error: cannot check: " << error.what() << std::endl;
        return kExitCannotCheck;
    }
    if (verdict.valid()) {
        std::cout << "yes" << std::endl;
        return 0;
    }
    std::cout << "no: " << verdict.reason << std::endl;
    return kExitFailed;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{
        "Makes portal signing keys, packs portal trees, signs and checks packages.\n"
        "Exit status: 0 success, 1 failure, 2 usage error; verify: see its --help."};
    app.require_subcommand(1);
    app.set_version_flag("--version", std::string("helion-portal ") + HELION_TOOLS_VERSION);

    std::string outDir, privatePath, publicPath;
    bool force = false;
    auto* keygenCmd =
        app.add_subcommand("keygen", "Make an RSA-2048 key pair for signing packages");
    auto* outOption =
        keygenCmd->add_option("-o,--out-dir", outDir,
                              "Write portal-private.pem and portal-public.pem into this directory");
    auto* privateOption = keygenCmd->add_option("--private", privatePath, "Private key file");
    auto* publicOption = keygenCmd->add_option("--public", publicPath, "Public key file");
    privateOption->excludes(outOption)->needs(publicOption);
    publicOption->excludes(outOption)->needs(privateOption);
    keygenCmd->add_flag("-f,--force", force, "Replace existing key files");

    std::string packDir, packOut;
    auto* packCmd = app.add_subcommand("pack", "Zip a portal tree the same way every time");
    packCmd->add_option("DIR", packDir, "The portal tree")
        ->required()
        ->check(CLI::ExistingDirectory);
    packCmd->add_option("-o,--output", packOut, "The package to write")->required();

    std::string signKey, signPackageFile, signOut;
    auto* signCmd = app.add_subcommand("sign", "Write the detached signature of a package");
    signCmd->add_option("--key", signKey, "PEM private key (RSA-2048)")->required();
    signCmd->add_option("PACKAGE", signPackageFile, "The package")->required();
    signCmd->add_option("-o,--output", signOut, "Signature file (default: PACKAGE.sig)");

    std::string verifyKey, verifyPackagePath, verifySignature;
    auto* verifyCmd = app.add_subcommand(
        "verify",
        "Check a package as the module does; prints yes (exit 0), or no and why (exit 1); "
        "exit 3 when the files or the key cannot be read");
    verifyCmd->add_option("--pub", verifyKey, "PEM public key")->required();
    verifyCmd->add_option("PACKAGE", verifyPackagePath, "The package")->required();
    verifyCmd->add_option("SIGNATURE", verifySignature, "Its detached signature")->required();

    std::string fingerprintKey;
    auto* fingerprintCmd = app.add_subcommand(
        "fingerprint", "Print the SHA-256 of a public key's DER SubjectPublicKeyInfo in hex");
    fingerprintCmd->add_option("--pub", fingerprintKey, "PEM public key")->required();

    if (const auto status = parseCommandLine(app, argc, argv)) {
        return *status;
    }
    if (keygenCmd->parsed() && outDir.empty() && privatePath.empty()) {
        app.exit(CLI::RequiredError("keygen needs -o DIR or --private FILE --public FILE"));
        return kExitUsage;
    }

    try {
        if (keygenCmd->parsed()) {
            keygen(outDir, privatePath, publicPath, force);
        } else if (packCmd->parsed()) {
            pack(packDir, packOut);
        } else if (signCmd->parsed()) {
            sign(signKey, signPackageFile, signOut);
        } else if (verifyCmd->parsed()) {
            return verify(verifyKey, verifyPackagePath, verifySignature);
        } else if (fingerprintCmd->parsed()) {
            std::cout << publicKeyFingerprint(loadPublicKey(fingerprintKey).get()) << std::endl;
        }
    } catch (const std::exception& error) {
        std::cerr << "helion-portal: error: " << error.what() << std::endl;
        return kExitFailed;
    }
    return 0;
}
