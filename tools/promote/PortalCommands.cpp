// The portal methods, with their parameter texts made from options, or sent as given by `call`.
#include <boost/filesystem.hpp>
#include <memory>

#include "tools/lib/RequestJson.h"
#include "tools/promote/Request.h"

namespace helion::promote {

namespace {

/// The host resolves paths in its own working directory; hand it absolute ones.
std::string absolute(const std::string& path) {
    return path.empty() ? path : boost::filesystem::absolute(path).string();
}

void addUpdatePortal(CLI::App& app, Request& request) {
    struct Args {
        std::string zip, sig, dir;
    };
    auto args = std::make_shared<Args>();
    auto* update = app.add_subcommand(
        "update-portal", "Verify a signed package and install it as a portal directory");
    update->add_option("--zip", args->zip, "The portal package (zip)")->required();
    update->add_option("--sig", args->sig, "Its detached signature")->required();
    update->add_option("--dir", args->dir, "Portal directory to replace, below the portal root")
        ->required();
    update->callback([args, &request] {
        request.portalNames = {args->dir};
        request.inputFiles = {{"package", args->zip}, {"signature", args->sig}};
        request.call = [args](Service& service) {
            std::string result;
            service.updatePortal(result, tools::updatePortalParam(absolute(args->zip), args->dir,
                                                                  absolute(args->sig)));
            return envelope(result);
        };
    });
}

void addCopyPortalDir(CLI::App& app, Request& request) {
    struct Args {
        std::string src, dir;
    };
    auto args = std::make_shared<Args>();
    auto* copy = app.add_subcommand(
        "copy-portal-dir",
        "Move the resource files of SRC into a portal directory, then remove SRC");
    copy->add_option("--src", args->src, "Source directory")->required();
    copy->add_option("--dir", args->dir, "Portal directory, below the portal root")->required();
    copy->callback([args, &request] {
        request.portalNames = {args->dir};
        request.call = [args](Service& service) {
            std::string result;
            service.copyPortalDir(result,
                                  tools::copyPortalDirParam(absolute(args->src), args->dir));
            return envelope(result);
        };
    });
}

void addDelPortalDir(CLI::App& app, Request& request) {
    auto dirs = std::make_shared<std::vector<std::string>>();
    auto* del = app.add_subcommand("del-portal-dir", "Remove portal directories");
    del->add_option("DIR", *dirs, "Portal directories, below the portal root")->required();
    del->callback([dirs, &request] {
        request.portalNames = *dirs;
        request.call = [dirs](Service& service) {
            std::string result;
            service.delPortalDir(result, tools::delPortalDirParam(*dirs));
            return envelope(result);
        };
    });
}

}  // namespace

void addPortalCommands(CLI::App& app, Request& request) {
    addUpdatePortal(app, request);
    addCopyPortalDir(app, request);
    addDelPortalDir(app, request);
}

void addRawCall(CLI::App& app, Request& request) {
    struct Args {
        std::string method, param;
    };
    auto args = std::make_shared<Args>();
    auto* call = app.add_subcommand("call", "Call a portal method with a raw JSON parameter text");
    call->add_option("METHOD", args->method, "updatePortal, copyPortalDir or delPortalDir")
        ->required()
        ->check(CLI::IsMember({"updatePortal", "copyPortalDir", "delPortalDir"}));
    call->add_option("JSON", args->param, "The parameter text, sent as it is")->required();
    call->callback([args, &request] {
        request.call = [args](Service& service) {
            std::string result;
            if (args->method == "updatePortal") {
                service.updatePortal(result, args->param);
            } else if (args->method == "copyPortalDir") {
                service.copyPortalDir(result, args->param);
            } else {
                service.delPortalDir(result, args->param);
            }
            return envelope(result);
        };
    });
}

}  // namespace helion::promote
