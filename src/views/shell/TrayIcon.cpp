#include "views/shell/TrayIcon.h"

#include "audio/Microphones.h"
#include "calls/CallTranslator.h"
#include "data/Settings.h"
#include "data/Store.h"
#include "desktop/HotkeyMonitor.h"
#include "dictation/DictationController.h"
#include "meetings/MeetingRecorder.h"
#include "platform/Platform.h"
#include "views/common/Symbols.h"
#include "views/shell/ShellModel.h"

#include <QActionGroup>
#include <QApplication>
#include <QMenu>
#include <QPalette>
#include <QPointer>
#include <QSystemTrayIcon>
#include <QTimer>

namespace ombry {

TrayIcon::TrayIcon(AppSettings& settings, DictationController& controller, QObject* parent)
    : QObject(parent), settings_(settings), controller_(controller),
      menu_(std::make_unique<QMenu>()) {
    menu_->setObjectName(QStringLiteral("trayMenu"));
    icon_ = new QSystemTrayIcon(this);
    icon_->setToolTip(QStringLiteral("Ombry Voice"));
    icon_->setContextMenu(menu_.get());
    connect(menu_.get(), &QMenu::aboutToShow, this, &TrayIcon::rebuild);
    connect(icon_, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason r) {
        if (r == QSystemTrayIcon::Trigger || r == QSystemTrayIcon::DoubleClick)
            Q_EMIT showWindowRequested();
    });
    connect(&controller_, &DictationController::stateChanged, this, &TrayIcon::followState);
    connect(&MeetingRecorder::shared(), &MeetingRecorder::stateChanged, this,
            &TrayIcon::followState);
    followState();
    // Some trays read the menu before its first opening.
    rebuild();
}

TrayIcon::~TrayIcon() = default;

void TrayIcon::show() {
    icon_->show();
}

void TrayIcon::followState() {
    iconName_ = TrayModel::iconName(controller_.state());
    icon_->setIcon(Symbols::trayIcon(iconName_));
    icon_->setToolTip(
        QStringLiteral("Ombry Voice · %1")
            .arg(ShellModel::statusTitle(controller_.state(), controller_.translating(),
                                         MeetingRecorder::shared().state().kind ==
                                             MeetingRecorder::State::Kind::Recording)));
}

void TrayIcon::rebuild() {
    TrayModel::Input in;
    TrayModel::readHistory(in, Store::shared());
    in.language = settings_.language();
    in.microphoneUID = settings_.microphoneUID();
    in.microphones = Microphones::all();
    in.key = settings_.key();
    in.rightAltIsAltGr = Platform::current().keyboard().rightAltIsAltGr();
    in.callRunning = CallTranslator::shared().running();
    in.meetingRecording =
        MeetingRecorder::shared().state().kind == MeetingRecorder::State::Kind::Recording;
    menu_->clear();
    for (QMenu* sub : menu_->findChildren<QMenu*>(Qt::FindDirectChildrenOnly))
        sub->deleteLater();
    fill(menu_.get(), TrayModel::build(in));
}

void TrayIcon::fill(QMenu* menu, const QList<TrayModel::Entry>& entries) {
    const QColor ink = menu->palette().color(QPalette::WindowText);
    QActionGroup* group = nullptr;
    for (const TrayModel::Entry& e : entries) {
        switch (e.kind) {
        case TrayModel::Entry::Kind::Separator:
            menu->addSeparator();
            break;
        case TrayModel::Entry::Kind::Submenu: {
            auto* sub = new QMenu(e.title, menu);
            if (!e.icon.isEmpty()) sub->setIcon(Symbols::icon(e.icon, ink, 16));
            fill(sub, e.children);
            menu->addMenu(sub);
            break;
        }
        case TrayModel::Entry::Kind::Item: {
            QAction* a = menu->addAction(e.title);
            if (!e.icon.isEmpty()) a->setIcon(Symbols::icon(e.icon, ink, 16));
            a->setEnabled(e.enabled);
            if (!e.shortcut.isEmpty()) a->setShortcut(QKeySequence(e.shortcut));
            if (e.checkable) {
                if (!group) {
                    group = new QActionGroup(menu);
                    group->setExclusive(true);
                }
                a->setCheckable(true);
                a->setChecked(e.checked);
                group->addAction(a);
            }
            connect(a, &QAction::triggered, this, [this, e] { act(e); });
            break;
        }
        }
    }
}

void TrayIcon::act(const TrayModel::Entry& e) {
    using A = TrayModel::Action;
    QPointer<DictationController> controller(&controller_);
    switch (e.action) {
    case A::None:
        break;
    case A::PasteLast:
        QTimer::singleShot(kActionDelayMs, this, [controller] {
            if (controller) controller->pasteLast();
        });
        break;
    case A::RetryFailed:
        if (const std::optional<QUuid> id = e.data ? parseUuid(*e.data) : std::nullopt)
            controller_.retry(*id);
        break;
    case A::Correct:
        QTimer::singleShot(kActionDelayMs, this, [controller] {
            if (controller) controller->correctSelection(false, false);
        });
        break;
    case A::ReadAloud:
        QTimer::singleShot(kActionDelayMs, this, [controller] {
            if (controller) controller->speakSelection();
        });
        break;
    case A::ShowWindow:
        Q_EMIT showWindowRequested();
        break;
    case A::OpenSettings:
        Q_EMIT settingsRequested();
        break;
    case A::Quit:
        Q_EMIT quitRequested();
        break;
    case A::ToggleCall:
        Q_EMIT callToggleRequested();
        break;
    case A::ToggleMeeting:
        Q_EMIT meetingToggleRequested();
        break;
    case A::PickLanguage:
        if (e.data)
            if (const std::optional<Language> l = fromRaw<Language>(*e.data))
                settings_.setLanguage(*l);
        break;
    case A::PickKey:
        if (e.data)
            if (const std::optional<DictationKey> k = fromRaw<DictationKey>(*e.data)) {
                settings_.setKey(*k);
                controller_.hotkey().restart();
            }
        break;
    case A::PickMic:
        if (e.data != settings_.microphoneUID()) settings_.setMicrophoneUID(e.data);
        break;
    }
}

} // namespace ombry
