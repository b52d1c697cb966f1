#include "correction/VoiceCommand.h"

#include "correction/Translator.h"
#include "desktop/Log.h"
#include "engines/LocalEngine.h"
#include "net/OpenRouter.h"
#include "online/OpenRouterComplete.h"

namespace ombry::VoiceCommand {

QString systemPrompt() {
    return QStringLiteral(
        "Tu modifies un texte selon l'instruction de l'utilisateur (par exemple : rends-le plus "
        "poli, traduis en anglais,\nrésume, mets en liste, corrige les fautes, ajoute une "
        "conclusion). Applique exactement l'instruction.\nRenvoie uniquement le nouveau texte, "
        "sans guillemets ni commentaire.");
}

QString userText(const QString& instruction, const QString& text) {
    return QStringLiteral("Instruction : ") + instruction + QStringLiteral("\n\nTexte :\n") + text;
}

QCoro::Task<QString> apply(QString instruction, QString text) {
    const QString system = systemPrompt();
    const QString user = userText(instruction, text);
    if (!hasRemote()) co_return co_await LocalModel::run(system, user);
    try {
        co_return co_await OpenRouter::complete(system, user, QString::fromLatin1(kModel));
    } catch (const std::exception&) {
        // Falls through to the local model below (no co_await inside a handler).
    }
    Log::write(QStringLiteral("commande: OpenRouter indisponible, Local prend le relais"));
    co_return co_await LocalModel::run(system, user);
}

} // namespace ombry::VoiceCommand
