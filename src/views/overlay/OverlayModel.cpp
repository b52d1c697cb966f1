#include "views/overlay/OverlayModel.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace ombry::OverlayModel {

Look look(const OverlayInput& in) {
    switch (in.stage) {
    case OverlayStage::Idle:
        return in.flash ? Look::Flash : Look::Empty;
    case OverlayStage::Recording:
        return Look::Recording;
    case OverlayStage::Processing:
    case OverlayStage::Correcting:
        return Look::Working;
    }
    return Look::Empty;
}

QString phase(const OverlayInput& in) {
    switch (in.stage) {
    case OverlayStage::Idle:
        return in.flash.value_or(QString());
    case OverlayStage::Recording:
        return in.liveText.isEmpty() ? QStringLiteral("rec") : QStringLiteral("rec-text");
    case OverlayStage::Processing:
        return QStringLiteral("proc");
    case OverlayStage::Correcting:
        return QStringLiteral("corr");
    }
    return {};
}

QString workingText(const OverlayInput& in) {
    if (in.stage == OverlayStage::Correcting)
        return in.translating ? QStringLiteral("Traduction") : QStringLiteral("Correction");
    if (in.commandText) return QStringLiteral("J'applique");
    return QStringLiteral("Mise au propre");
}

QString elapsedText(const QDateTime& startedAt, const QDateTime& now) {
    const qint64 seconds =
        startedAt.isValid() ? std::max<qint64>(0, startedAt.msecsTo(now) / 1000) : 0;
    return QStringLiteral("%1:%2").arg(seconds / 60).arg(seconds % 60, 2, 10, QLatin1Char('0'));
}

std::array<double, 7> barHeights(double level, double t) {
    std::array<double, 7> h{};
    const double loud = std::max(level, kMinLevel) * 18.0;
    for (size_t i = 0; i < h.size(); ++i) {
        const double swing = std::sin(9.0 * t + 0.9 * double(i)) * 0.25 + 0.75;
        h[i] = swing * loud * kWeights[i] + 4.0;
    }
    return h;
}

double dotOpacity(int i, double t) {
    // Each dot peaks a third of a second after the one before it.
    const double x = std::sin(2.0 * std::numbers::pi * (t - i / 3.0));
    return 0.3 + 0.7 * (x * 0.5 + 0.5);
}

} // namespace ombry::OverlayModel
