// The generic reflected binding of the request models beside a hand-written RapidJSON binding of
// the same structs: what the genericity costs per request.
#include <benchmark/benchmark.h>
#include <rapidjson/document.h>

#include <string>

#include "io/JsonBinding.h"
#include "model/CopyPortalDirReq.h"
#include "model/DelPortalDirReq.h"
#include "model/UpdatePortalReq.h"

namespace {

using corvid::sdp_promote::copyPortalDirReq::CopyPortalDirReq;
using corvid::sdp_promote::delPortalDirReq::DelPortalDirReq;
using corvid::sdp_promote::updatePortalReq::UpdatePortalReq;

const std::string kUpdateJson =
    R"({"srcZip":"/var/tmp/portal-update/portal-2.2.16.1.zip","portalDir":"portal",)"
    R"("signFile":"/var/tmp/portal-update/portal-2.2.16.1.zip.sig"})";
const std::string kCopyJson =
    R"({"srcDir":"/var/tmp/portal-update/unpacked","portalDir":"portal/assets"})";
const std::string kDelJson = R"({"portalDirs":["portal-old","portal-2.2.15","cache/portal"]})";

void assignString(const rapidjson::Document& doc, const char* key, std::string& out) {
    const auto member = doc.FindMember(key);
    if (member != doc.MemberEnd() && member->value.IsString()) {
        out = member->value.GetString();
    }
}

bool handUpdate(const std::string& json, UpdatePortalReq& req) {
    rapidjson::Document doc;
    if (doc.Parse(json.c_str(), json.size()).HasParseError() || !doc.IsObject()) {
        return false;
    }
    assignString(doc, "srcZip", req.srcZip);
    assignString(doc, "portalDir", req.portalDir);
    assignString(doc, "signFile", req.signFile);
    return true;
}

bool handCopy(const std::string& json, CopyPortalDirReq& req) {
    rapidjson::Document doc;
    if (doc.Parse(json.c_str(), json.size()).HasParseError() || !doc.IsObject()) {
        return false;
    }
    assignString(doc, "srcDir", req.srcDir);
    assignString(doc, "portalDir", req.portalDir);
    return true;
}

bool handDel(const std::string& json, DelPortalDirReq& req) {
    rapidjson::Document doc;
    if (doc.Parse(json.c_str(), json.size()).HasParseError() || !doc.IsObject()) {
        return false;
    }
    const auto member = doc.FindMember("portalDirs");
    if (member != doc.MemberEnd() && member->value.IsArray()) {
        const auto& array = member->value;
        req.portalDirs.resize(array.Size());
        for (rapidjson::SizeType i = 0; i < array.Size(); ++i) {
            if (array[i].IsString()) {
                req.portalDirs[i] = array[i].GetString();
            }
        }
    }
    return true;
}

template <typename Req>
void runFromJson(benchmark::State& state, const std::string& json) {
    for (auto _ : state) {
        Req req;
        benchmark::DoNotOptimize(io::from_json(json, req));
        benchmark::DoNotOptimize(req);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * json.size()));
}

template <typename Req>
void runHand(benchmark::State& state, const std::string& json,
             bool (*bind)(const std::string&, Req&)) {
    for (auto _ : state) {
        Req req;
        benchmark::DoNotOptimize(bind(json, req));
        benchmark::DoNotOptimize(req);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * json.size()));
}

void BM_FromJson_UpdatePortalReq(benchmark::State& state) {
    runFromJson<UpdatePortalReq>(state, kUpdateJson);
}
void BM_HandRapidJson_UpdatePortalReq(benchmark::State& state) {
    runHand<UpdatePortalReq>(state, kUpdateJson, handUpdate);
}
void BM_FromJson_CopyPortalDirReq(benchmark::State& state) {
    runFromJson<CopyPortalDirReq>(state, kCopyJson);
}
void BM_HandRapidJson_CopyPortalDirReq(benchmark::State& state) {
    runHand<CopyPortalDirReq>(state, kCopyJson, handCopy);
}
void BM_FromJson_DelPortalDirReq(benchmark::State& state) {
    runFromJson<DelPortalDirReq>(state, kDelJson);
}
void BM_HandRapidJson_DelPortalDirReq(benchmark::State& state) {
    runHand<DelPortalDirReq>(state, kDelJson, handDel);
}
BENCHMARK(BM_FromJson_UpdatePortalReq);
BENCHMARK(BM_HandRapidJson_UpdatePortalReq);
BENCHMARK(BM_FromJson_CopyPortalDirReq);
BENCHMARK(BM_HandRapidJson_CopyPortalDirReq);
BENCHMARK(BM_FromJson_DelPortalDirReq);
BENCHMARK(BM_HandRapidJson_DelPortalDirReq);

}  // namespace
