#pragma once
// The benchmark programs' "unix:PATH" options, read as the host and its client read endpoints.

#include <CLI/CLI.hpp>
#include <stdexcept>
#include <string>

#include "host/endpoint/Endpoint.h"

namespace helion::bench {

/// A required option taking unix:PATH; path receives PATH.
inline CLI::Option* addUnixPathOption(CLI::App& app, const std::string& name, std::string& path,
                                      const std::string& description) {
    const auto toPath = [](std::string& text) {
        try {
            const auto endpoint = host::parseEndpoint(text);
            if (endpoint.kind == host::Endpoint::Kind::Unix) {
                text = endpoint.path;
                return std::string();
            }
        } catch (const std::invalid_argument&) {
        }
        return std::string("takes unix:PATH");
    };
    return app.add_option(name, path, description)
        ->required()
        ->type_name("unix:PATH")
        ->transform(CLI::Validator(toPath, ""));
}

}  // namespace helion::bench
