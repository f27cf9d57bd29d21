// Registers the request models under their fully qualified names, one property per JSON key.
#include <rttr/registration>

#include "model/CopyPortalDirReq.h"
#include "model/DelPortalDirReq.h"
#include "model/RequestKeys.h"
#include "model/UpdatePortalReq.h"

RTTR_REGISTRATION {
    using namespace corvid::sdp_promote;
    using copyPortalDirReq::CopyPortalDirReq;
    using delPortalDirReq::DelPortalDirReq;
    using updatePortalReq::UpdatePortalReq;

    rttr::registration::class_<UpdatePortalReq>(
        "corvid::sdp_promote::updatePortalReq::UpdatePortalReq")
        .constructor<>()
        .property(keys::kSrcZip, &UpdatePortalReq::srcZip)
        .property(keys::kPortalDir, &UpdatePortalReq::portalDir)
        .property(keys::kSignFile, &UpdatePortalReq::signFile);

    rttr::registration::class_<CopyPortalDirReq>(
        "corvid::sdp_promote::copyPortalDirReq::CopyPortalDirReq")
        .constructor<>()
        .property(keys::kSrcDir, &CopyPortalDirReq::srcDir)
        .property(keys::kPortalDir, &CopyPortalDirReq::portalDir);

    rttr::registration::class_<DelPortalDirReq>(
        "corvid::sdp_promote::delPortalDirReq::DelPortalDirReq")
        .constructor<>()
        // Bound in place (io::from_json fills it through the pointer), not copied twice.
        .property(keys::kPortalDirs, &DelPortalDirReq::portalDirs)(rttr::policy::prop::bind_as_ptr);
}
