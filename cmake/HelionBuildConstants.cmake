# The module reads no configuration at run time: the bundle's Resources directory and the
# package-signing public key are compiled in. helion_build_constants() makes an OBJECT library
# holding one such set, so the deployed module and the test builds can differ only in it.

# Fails the configuration unless FILE holds an RSA-2048 public key (exponent 65537) in the
# exact PEM SubjectPublicKeyInfo form the verifier expects.
function(helion_check_public_key file)
    if(NOT EXISTS "${file}")
        message(FATAL_ERROR "HELION_PORTAL_PUBLIC_KEY: '${file}' does not exist")
    endif()
    file(READ "${file}" pem)
    string(LENGTH "${pem}" pem_length)
    set(spki_prefix "-----BEGIN PUBLIC KEY-----\nMIIBIjANBgkqhkiG9w0BAQEFAAOCAQ8AMIIBCgKCAQEA")
    string(FIND "${pem}" "${spki_prefix}" prefix_at)
    string(FIND "${pem}" "IDAQAB\n-----END PUBLIC KEY-----\n" suffix_at)
    if(NOT pem_length EQUAL 451 OR NOT prefix_at EQUAL 0 OR NOT suffix_at EQUAL 419)
        message(FATAL_ERROR "HELION_PORTAL_PUBLIC_KEY: '${file}' is not a PEM RSA-2048 public key "
                            "(SubjectPublicKeyInfo, exponent 65537, 451 characters); "
                            "make one with 'helion-portal keygen'")
    endif()
endfunction()

# Warns when FILE is the development key (compared by content, wherever the file lives), and
# fails a packaging build then unless HELION_ALLOW_DEV_KEY is on. Writes the key's fingerprint,
# SHA-256 of its DER SubjectPublicKeyInfo in lowercase hex and a newline, to FINGERPRINT_FILE.
function(helion_check_deployment_key file fingerprint_file)
    file(SHA256 "${file}" key_hash)
    file(SHA256 "${PROJECT_SOURCE_DIR}/keys/dev-portal-public.pem" dev_key_hash)
    if(key_hash STREQUAL dev_key_hash)
        string(CONCAT what "HELION_PORTAL_PUBLIC_KEY is the development key (keys/dev-portal-public.pem). "
                 "Its private half is public in this repository, so anyone can sign portal "
                 "packages that this module accepts. Build deployments with "
                 "-DHELION_PORTAL_PUBLIC_KEY=<your portal-public.pem>.")
        if(HELION_PACKAGING AND NOT HELION_ALLOW_DEV_KEY)
            message(FATAL_ERROR "${what} Packages with it are refused unless "
                                "-DHELION_ALLOW_DEV_KEY=ON says they are throw-away.")
        endif()
        message(WARNING "${what}")
    endif()

    find_program(HELION_OPENSSL openssl)
    if(NOT HELION_OPENSSL)
        message(FATAL_ERROR "the openssl command is needed to fingerprint the portal key "
                            "(scripts/install-deps.sh installs it)")
    endif()
    set(der "${CMAKE_CURRENT_BINARY_DIR}/portal-public.der")
    execute_process(COMMAND "${HELION_OPENSSL}" pkey -pubin -in "${file}" -outform DER -out "${der}"
        RESULT_VARIABLE result ERROR_VARIABLE error)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "openssl cannot read '${file}': ${error}")
    endif()
    file(SHA256 "${der}" fingerprint)
    file(REMOVE "${der}")
    file(WRITE "${fingerprint_file}" "${fingerprint}\n")
endfunction()

function(helion_build_constants target)
    cmake_parse_arguments(ARG "" "RESOURCES_DIR;PUBLIC_KEY" "" ${ARGN})
    helion_check_public_key("${ARG_PUBLIC_KEY}")
    file(READ "${ARG_PUBLIC_KEY}" HELION_PUBLIC_KEY_PEM)
    string(REGEX REPLACE "/+$" "" HELION_CONST_RESOURCES_DIR "${ARG_RESOURCES_DIR}")
    set(out "${CMAKE_CURRENT_BINARY_DIR}/${target}/BuildConstants.cpp")
    configure_file("${PROJECT_SOURCE_DIR}/cmake/BuildConstants.cpp.in" "${out}" @ONLY)
    add_library(${target} OBJECT "${out}")
    # Defines what SdpPromote/BuildConstants.h declares.
    target_link_libraries(${target} PRIVATE helion_settings helion_sdp_promote)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${ARG_PUBLIC_KEY}")
endfunction()
