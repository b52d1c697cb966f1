#include "views/overlay/OverlayBinding.h"

#include "data/Settings.h"
#include "desktop/DeviceProfile.h"
#include "dictation/DictationController.h"
#include "platform/Clock.h"
#include "platform/Platform.h"
#include "views/overlay/OverlayView.h"

namespace ombry {

namespace {

OverlayStage stageOf(DictationController::State s) {
    switch (s) {
    case DictationController::State::Idle:
        return OverlayStage::Idle;
    case DictationController::State::Recording:
        return OverlayStage::Recording;
    case DictationController::State::Processing:
        return OverlayStage::Processing;
    case DictationController::State::Correcting:
        return OverlayStage::Correcting;
    }
    return OverlayStage::Idle;
}

} // namespace

OverlayBinding::OverlayBinding(DictationController& controller, OverlayView& view)
    : QObject(&view), controller_(controller), view_(view) {
    using C = DictationController;
    for (auto signal :
         {&C::stateChanged, &C::flashChanged, &C::flashIsErrorChanged, &C::levelChanged,
          &C::liveTextChanged, &C::commandTextChanged, &C::translatingChanged})
        connect(&controller, signal, this, &OverlayBinding::update);
    AppSettings& settings = AppSettings::shared();
    connect(&settings, &AppSettings::themeChanged, this, &OverlayBinding::updateAppearance);
    connect(&settings, &AppSettings::performanceModeChanged, this,
            &OverlayBinding::updateAppearance);
    updateAppearance();
    update();
}

OverlayInput OverlayBinding::read() const {
    OverlayInput in;
    in.stage = stageOf(controller_.state());
    in.flash = controller_.flash();
    in.flashIsError = controller_.flashIsError();
    in.level = controller_.level();
    in.liveText = controller_.liveText();
    in.commandText = controller_.commandText();
    in.translating = controller_.translating();
    in.startedAt = startedAt_;
    in.appId = appId_;
    in.appName = appName_;
    return in;
}

void OverlayBinding::update() {
    const bool recording = controller_.state() == DictationController::State::Recording;
    if (recording && !wasRecording_) {
        startedAt_ = Platform::current().clock().now();
        // The strip never takes the focus, so the window in front is still the one the
        // controller remembered for the paste.
        const std::optional<AppWindow> front = Platform::current().windows().frontmost();
        appId_ = front ? front->appId : QString();
        appName_ = front ? front->name : QString();
    }
    wasRecording_ = recording;
    view_.setInput(read());
}

void OverlayBinding::updateAppearance() {
    view_.setAppearance(AppSettings::shared().theme() == Theme::Dark,
                        DeviceProfile::lightVisuals());
}

} // namespace ombry
