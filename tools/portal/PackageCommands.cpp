// pack, sign, verify and fingerprint: what a package signer does with a tree, a package and keys.
#include <sys/stat.h>

#include <cstdio>
#include <iostream>
#include <memory>

#include "tools/lib/FileIo.h"
#include "tools/lib/OpenSslKeys.h"
#include "tools/lib/PackageSignature.h"
#include "tools/lib/PackageWriter.h"
#include "tools/portal/Commands.h"

namespace helion::portal {

namespace {

using namespace helion::tools;

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

int sign(const std::string& keyPath, const std::string& package, std::string out) {
    if (out.empty()) {
        out = package + ".sig";
    }
    const PkeyPtr key = loadPrivateKey(keyPath);
    warnIfReadableByOthers(keyPath);
    writeFileAtomically(out, signPackageFile(package, key.get()));
    std::cout << "signed " << package << " -> " << out << std::endl;
    return 0;
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

void addPack(CLI::App& app, Command& command) {
    auto args = std::make_shared<std::pair<std::string, std::string>>();
    auto* pack = app.add_subcommand("pack", "Zip a portal tree the same way every time");
    pack->add_option("DIR", args->first, "The portal tree")
        ->required()
        ->check(CLI::ExistingDirectory);
    pack->add_option("-o,--output", args->second, "The package to write")->required();
    pack->callback([args, &command] {
        command = [args] {
            const PackSummary summary = packPortal(args->first, args->second);
            std::cout << "packed " << summary.entries.size() << " files (" << summary.bytes
                      << " bytes) into " << args->second << std::endl;
            return 0;
        };
    });
}

void addSign(CLI::App& app, Command& command) {
    struct Args {
        std::string key, package, out;
    };
    auto args = std::make_shared<Args>();
    auto* signCmd = app.add_subcommand("sign", "Write the detached signature of a package");
    signCmd->add_option("--key", args->key, "PEM private key (RSA-2048)")->required();
    signCmd->add_option("PACKAGE", args->package, "The package")->required();
    signCmd->add_option("-o,--output", args->out, "Signature file (default: PACKAGE.sig)");
    signCmd->callback([args, &command] {
        command = [args] { return sign(args->key, args->package, args->out); };
    });
}

void addVerify(CLI::App& app, Command& command) {
    struct Args {
        std::string key, package, signature;
    };
    auto args = std::make_shared<Args>();
    auto* verifyCmd = app.add_subcommand(
        "verify",
        "Check a package as the module does; prints yes (exit 0), or no and why (exit 1); "
        "exit 3 when the files or the key cannot be read");
    verifyCmd->add_option("--pub", args->key, "PEM public key")->required();
    verifyCmd->add_option("PACKAGE", args->package, "The package")->required();
    verifyCmd->add_option("SIGNATURE", args->signature, "Its detached signature")->required();
    verifyCmd->callback([args, &command] {
        command = [args] { return verify(args->key, args->package, args->signature); };
    });
}

void addFingerprint(CLI::App& app, Command& command) {
    auto key = std::make_shared<std::string>();
    auto* fingerprint = app.add_subcommand(
        "fingerprint", "Print the SHA-256 of a public key's DER SubjectPublicKeyInfo in hex");
    fingerprint->add_option("--pub", *key, "PEM public key")->required();
    fingerprint->callback([key, &command] {
        command = [key] {
            std::cout << publicKeyFingerprint(loadPublicKey(*key).get()) << std::endl;
            return 0;
        };
    });
}

}  // namespace

void addPackageCommands(CLI::App& app, Command& command) {
    addPack(app, command);
    addSign(app, command);
    addVerify(app, command);
    addFingerprint(app, command);
}

}  // namespace helion::portal
