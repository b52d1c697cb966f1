#pragma once

#include <QByteArray>
#include <QString>

// What this build of the program is, fixed when it is compiled: its version and build number
// (OMBRY_BUILD_NUMBER), and the public key that update archives must be signed with
// (OMBRY_UPDATE_PUBKEY_HEX). Nothing at run time can change them: no setting, file or
// environment variable is read for them.
namespace ombry::BuildInfo {

// The version shown to the user ("0.1.0").
QString version();

// The build number as it was given to the build, in text; the updater reads it as an integer.
QString buildNumberText();

// The Ed25519 public key of the update archives (32 bytes); empty when the build has none, and
// then no archive verifies.
QByteArray updatePublicKey();

} // namespace ombry::BuildInfo
