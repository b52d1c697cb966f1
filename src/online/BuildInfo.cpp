// Compiled with the definitions of the build (see src/online/CMakeLists.txt). This file holds
// nothing else, so that a test program can link its own copy, compiled with a test key, in
// place of the library's.
#include "online/BuildInfo.h"

#ifndef OMBRY_VERSION
#error "OMBRY_VERSION must be defined by the build"
#endif
#ifndef OMBRY_BUILD_NUMBER
#error "OMBRY_BUILD_NUMBER must be defined by the build"
#endif
#ifndef OMBRY_UPDATE_PUBKEY_HEX
#error "OMBRY_UPDATE_PUBKEY_HEX must be defined by the build"
#endif

namespace ombry::BuildInfo {

QString version() {
    return QStringLiteral(OMBRY_VERSION);
}

QString buildNumberText() {
    return QStringLiteral(OMBRY_BUILD_NUMBER);
}

QByteArray updatePublicKey() {
    const QByteArray key = QByteArray::fromHex(QByteArrayLiteral(OMBRY_UPDATE_PUBKEY_HEX));
    return key.size() == 32 ? key : QByteArray();
}

} // namespace ombry::BuildInfo
