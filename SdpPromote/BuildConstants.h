#pragma once
// Deployment constants compiled into the module (see cmake/HelionBuildConstants.cmake).

namespace corvid::build {

/// The application bundle's Resources directory, without a trailing slash.
extern const char* const kResourcesDir;
/// The portal root: "<Resources>/app/", with the trailing slash.
extern const char* const kPortalRoot;
/// The diagnosis tool executable: "<Resources>/bin/HelionDiagnosisTool".
extern const char* const kDiagnosisTool;
/// PEM SubjectPublicKeyInfo of the RSA-2048 key that signs portal packages.
extern const char* const kPortalPublicKey;

}  // namespace corvid::build
