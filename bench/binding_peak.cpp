// What binding one large delPortalDir request costs: run under /usr/bin/time -v and compare the
// peak resident size with the request's length. Arguments: the element kind (zero, object or
// string) and the request's size in MiB.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "io/JsonBinding.h"
#include "model/DelPortalDirReq.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s zero|object|string MIB\n", argv[0]);
        return 2;
    }
    const std::string kind = argv[1];
    const std::size_t size = std::strtoul(argv[2], nullptr, 10) << 20;
    const std::string element = kind == "zero" ? "0" : kind == "object" ? "{}" : "\"a\"";
    std::string json = R"({"portalDirs":[)";
    json.reserve(size + element.size() + 2);
    while (json.size() < size) {
        json += element + ",";
    }
    json += element + "]}";
    corvid::sdp_promote::delPortalDirReq::DelPortalDirReq request;
    const bool bound = io::from_json(json, request);
    std::printf("bound %d: %zu elements from %zu bytes\n", bound, request.portalDirs.size(),
                json.size());
    return bound ? 0 : 1;
}
