#pragma once

#include "platform/Desktop.h"
#include "platform/linux/PulseClient.h"

// What the computer plays, for the subtitles of a call: the streams (sink inputs) of every
// application but this program, or of one application only, each captured on its own and
// mixed.
namespace ombry::linux_platform {

// The identity of an application from the properties of its stream: the desktop-file id when
// a desktop file matches (the application.id property, then the executable, then the
// application's name as a window class), else the application's name in lower case, else the
// executable's.
PlayingApp identifyStream(const QString& applicationId, const QString& applicationName,
                          const QString& binary);

QList<PlayingApp> playingApps(PulseClient& client);
// Whether the server's default output has a monitor to capture.
bool outputCaptureAvailable(PulseClient& client);
// Whether the application has a connection to the sound server (a call program keeps one
// while silent) or a process of its program runs.
bool applicationRunning(PulseClient& client, const QString& appId);

std::unique_ptr<CaptureStream> captureOutput(const QString& appId, AudioSystem::PcmHandler onPcm,
                                             AudioSystem::EndHandler onEnd);

} // namespace ombry::linux_platform
