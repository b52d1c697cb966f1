#pragma once

// A spoken instruction applied to the selected text ("rends-le plus poli", "mets en liste"...).

#include <QCoroTask>
#include <QString>

namespace ombry::VoiceCommand {

// The model of voice commands, whatever the settings say.
inline constexpr const char* kModel = "google/gemini-2.5-flash-lite";

// The fixed instructions of the model.
QString systemPrompt();

// The prompt that carries the instruction and the text.
QString userText(const QString& instruction, const QString& text);

// Applies the instruction to the text: remote model when hasRemote(), the local model otherwise
// or when the remote call fails. A failure of the local model reaches the caller.
QCoro::Task<QString> apply(QString instruction, QString text);

} // namespace ombry::VoiceCommand
