#pragma once

#include <QDateTime>
#include <QString>
#include <array>
#include <optional>

// What the dictation strip shows, as plain functions of the controller's observable state, so
// that the rules are tested without a screen. The widget only draws what these return.
namespace ombry {

// The controller's state as the strip sees it.
enum class OverlayStage { Idle, Recording, Processing, Correcting };

// One reading of the controller's observable fields.
struct OverlayInput {
    OverlayStage stage = OverlayStage::Idle;
    std::optional<QString> flash;
    bool flashIsError = false;
    double level = 0;
    QString liveText;
    std::optional<QString> commandText;
    bool translating = false;
    QDateTime startedAt; // when the recording began
    QString appId;       // the application the text goes to (icon), empty when unknown
    QString appName;
};

namespace OverlayModel {

// The four faces of the strip.
enum class Look { Empty, Flash, Recording, Working };

Look look(const OverlayInput& in);

// The value whose change marks a new face: "", the flash text, "rec", "rec-text", "proc", "corr".
QString phase(const OverlayInput& in);

// The words shown while the text is being worked on.
QString workingText(const OverlayInput& in);

// Whole seconds since `startedAt`, as minutes and two-digit seconds ("1:15", "0:09"). A start
// in the future (clock adjusted) reads 0:00.
QString elapsedText(const QDateTime& startedAt, const QDateTime& now);

// Seven bars, high in the middle.
inline constexpr std::array<double, 7> kWeights{0.35, 0.6, 0.85, 1.0, 0.85, 0.6, 0.35};
inline constexpr double kMinLevel = 0.12;

// Heights in pixels of the bars at `t` seconds: they breathe even in silence (the level is
// held at 0.12 at least) and keep their lens shape.
std::array<double, 7> barHeights(double level, double t);

// Opacity (0.3 to 1) of dot `i` of the three working dots at `t` seconds: a wave that runs from
// left to right once a second.
double dotOpacity(int i, double t);

} // namespace OverlayModel
} // namespace ombry
