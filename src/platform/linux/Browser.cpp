#include "platform/linux/LinuxPlatform.h"

#include <QProcess>

namespace ombry::linux_platform {
namespace {

class XdgOpenBrowser final : public Browser {
public:
    bool open(const QUrl& url) override {
        return QProcess::startDetached(QStringLiteral("xdg-open"),
                                       {url.toString(QUrl::FullyEncoded)});
    }
};

} // namespace

std::unique_ptr<Browser> makeBrowser() {
    return std::make_unique<XdgOpenBrowser>();
}

} // namespace ombry::linux_platform
