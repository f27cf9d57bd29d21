#include "BenchFiles.h"

#include <boost/filesystem.hpp>
#include <fstream>
#include <random>
#include <stdexcept>
#include <vector>

#include "tools/lib/FileIo.h"
#include "tools/lib/OpenSslKeys.h"
#include "tools/lib/PackageSignature.h"

namespace helion::bench {

namespace fs = boost::filesystem;

namespace {

void writeAll(const std::string& path, const std::string& data) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(data.data(), static_cast<std::streamsize>(data.size()));
    if (!out) {
        throw std::runtime_error("cannot write " + path);
    }
}

std::string randomBytes(std::mt19937_64& rng, std::uint64_t size) {
    std::string data(size, '\0');
    std::size_t i = 0;
    for (; i + 8 <= size; i += 8) {
        const std::uint64_t word = rng();
        for (int b = 0; b < 8; ++b) {
            data[i + b] = static_cast<char>(word >> (8 * b));
        }
    }
    for (; i < size; ++i) {
        data[i] = static_cast<char>(rng());
    }
    return data;
}

// Source-like text: a small vocabulary in varying order, so it deflates about as well as the
// stylesheets and scripts of a real portal.
std::string textAsset(std::mt19937_64& rng, std::uint64_t size, const std::string& ext) {
    static const std::vector<std::string> words = {
        "function", "return", "const",  "portal", "display", "margin",   "padding", "color",
        "#1f2a44",  "width",  "height", "var",    "let",     "=>",       "{",       "}",
        "(",        ")",      ";",      "\n",     "  ",      "\"name\"", ":",       ",",
        "div",      "class",  "button", "0px",    "auto",    "flex",     "grid",    "true",
        "false",    "null",   "this",   "props",  "state",   "async",    "await",   "import"};
    std::string text;
    text.reserve(size + 16);
    text += ext == "html" ? "<!DOCTYPE html>\n" : ext == "json" ? "{\n" : "/* portal */\n";
    std::uniform_int_distribution<std::size_t> pick(0, words.size() - 1);
    while (text.size() < size) {
        text += words[pick(rng)];
        text += ' ';
    }
    text.resize(size);
    return text;
}

}  // namespace

ScratchDir::ScratchDir() {
    const fs::path dir = fs::temp_directory_path() / fs::unique_path("helion-bench-%%%%-%%%%-%%%%");
    fs::create_directories(dir);
    path_ = dir.string();
}

ScratchDir::~ScratchDir() {
    boost::system::error_code ignored;
    fs::remove_all(path_, ignored);
}

void writeRandomFile(const std::string& path, std::uint64_t size, std::uint64_t seed) {
    std::mt19937_64 rng(seed);
    writeAll(path, randomBytes(rng, size));
}

std::uint64_t writePortalTree(const std::string& dir, std::uint64_t totalBytes, unsigned files,
                              std::uint64_t seed) {
    static const char* const textKinds[] = {"css", "js", "json", "html"};
    static const char* const binaryKinds[] = {"png", "jpg", "woff2", "ttf"};
    static const char* const dirNames[] = {"assets", "img",    "fonts",   "js",    "css",
                                           "i18n",   "vendor", "modules", "static"};
    std::mt19937_64 rng(seed);
    // About 40% of the bytes in a quarter of the files: images and fonts are the big ones.
    const unsigned binaryFiles = files / 4;
    const unsigned textFiles = files - binaryFiles;
    const std::uint64_t binaryAverage = totalBytes * 2 / 5 / (binaryFiles ? binaryFiles : 1);
    const std::uint64_t textAverage = totalBytes * 3 / 5 / (textFiles ? textFiles : 1);
    // About twenty files a directory, as in a real bundle, in directories one to four deep.
    std::vector<std::string> dirs(files / 20 + 1);
    for (auto& rel : dirs) {
        const unsigned depth = 1 + static_cast<unsigned>(rng() % 4);
        for (unsigned d = 0; d < depth; ++d) {
            rel += dirNames[rng() % (sizeof dirNames / sizeof *dirNames)];
            rel += std::to_string(rng() % 3) + "/";
        }
    }
    std::uint64_t written = 0;
    for (unsigned i = 0; i < files; ++i) {
        const bool binary = i % 4 == 3;
        const std::uint64_t average = binary ? binaryAverage : textAverage;
        // Sizes spread between a tenth and nearly twice the average.
        const std::uint64_t size = average / 10 + rng() % (average * 18 / 10 + 1);
        std::string rel = dirs[rng() % dirs.size()];
        const std::string ext = binary ? binaryKinds[rng() % 4] : textKinds[rng() % 4];
        rel += "f" + std::to_string(i) + "." + ext;
        writeAll(dir + "/" + rel, binary ? randomBytes(rng, size) : textAsset(rng, size, ext));
        written += size;
    }
    return written;
}

void signWithDevKey(const std::string& path, const std::string& sigPath) {
    const tools::PkeyPtr key = tools::loadPrivateKey(HELION_DEV_PRIVATE_KEY);
    writeAll(sigPath, tools::signPackage(tools::readWholeFile(path), key.get()));
}

}  // namespace helion::bench
