#include "app/Usage.h"

#include <array>

namespace ombry::usage {
namespace {

constexpr std::array kSwitches{
    Entry{"--chunktest", "FICHIER",
          "Transcrit un enregistrement par morceaux, coupés aux silences comme pendant une longue "
          "dictée, et affiche le nombre de morceaux et le texte."},
    Entry{"--update", "",
          "Cherche une nouvelle version et l'installe. Une copie installée par le gestionnaire de "
          "paquets se met à jour avec lui."},
    Entry{"--fasttest", "FICHIER",
          "Transcrit et nettoie un enregistrement en un seul appel au modèle de parole."},
    Entry{"--calltest", "FICHIER",
          "Transcrit un enregistrement en anglais et le traduit en français, comme les "
          "sous-titres d'un appel."},
    Entry{"--command", "CONSIGNE TEXTE", "Applique une commande vocale au texte."},
    Entry{"--translate", "TEXTE",
          "Traduit le texte en anglais (ou en français s'il est déjà en anglais)."},
    Entry{"--correct", "TEXTE",
          "Corrige le texte, explique chaque correction, puis le réécrit dans un registre "
          "soigné."},
    Entry{"--test", "FICHIER",
          "Transcrit un enregistrement et le reformule sur cet ordinateur seulement, sans réseau."},
    Entry{"--icon", "DOSSIER", "Dessine le jeu d'icônes du programme dans le dossier."},
    Entry{"--snapshot", "DOSSIER",
          "Enregistre une image de chaque page de la fenêtre principale dans le dossier."},
    Entry{"--press", "",
          "Dit au programme lancé que la touche de dictée est enfoncée (pour un raccourci du "
          "compositeur, sur Wayland)."},
    Entry{"--release", "", "Dit au programme lancé que la touche de dictée est relâchée."},
    Entry{"--toggle", "",
          "Commence une dictée sans les mains, ou termine celle en cours (pour un raccourci qui ne "
          "voit que les appuis)."},
    Entry{"--retry", "",
          "Fait réessayer au programme lancé la dernière dictée échouée, dont l'enregistrement est "
          "gardé ; le texte va dans le presse-papiers."},
    Entry{"--help", "", "Affiche cette aide."},
};

constexpr std::array kEnvironment{
    Entry{"OMBRY_SITE_URL", "",
          "Adresse du service hébergé (crédits, mises à jour). Vide : pas de service hébergé."},
    Entry{"OMBRY_OPENROUTER_URL", "", "Adresse du service OpenRouter."},
    Entry{"OMBRY_DEEPGRAM_URL", "", "Adresse du service Deepgram."},
    Entry{"OMBRY_LANGUAGETOOL_URL", "", "Adresse du serveur LanguageTool."},
    Entry{"OMBRY_LOCAL_STT_URL", "",
          "Adresse d'un serveur de reconnaissance vocale sur cet ordinateur (compatible "
          "OpenAI)."},
    Entry{"OMBRY_LOCAL_LLM_URL", "",
          "Adresse d'un modèle de langage sur cet ordinateur (llama.cpp, Ollama : compatible "
          "OpenAI)."},
    Entry{"OMBRY_POCKETSPHINX_JSGF", "",
          "Grammaire JSGF que prend la reconnaissance hors ligne de pocketsphinx."},
    Entry{"XDG_CONFIG_HOME, XDG_DATA_HOME, XDG_RUNTIME_DIR", "",
          "Où sont les réglages, les données et le canal du programme lancé."},
    Entry{"WAYLAND_DISPLAY, DISPLAY, XDG_CURRENT_DESKTOP", "",
          "Le bureau de la session, dont le programme choisit les chemins (touche, collage, "
          "presse-papiers)."},
};

constexpr std::array kFiles{
    Entry{"~/.config/com.quennard.ombryvoice.json", "", "Les réglages."},
    Entry{"~/.local/share/Ombry Voice/", "",
          "L'historique, le dictionnaire, les raccourcis vocaux, les réunions, les clés et le "
          "journal (journal.log)."},
    Entry{"~/.local/share/Ombry Voice/Audio/", "",
          "L'audio des dictées et des réunions, gardé 30 jours."},
    Entry{"~/.config/autostart/ombry-voice.desktop", "", "Le lancement à l'ouverture de session."},
};

// Roff text: a backslash is written \e, and a line may not begin with a dot or an apostrophe,
// which roff would read as a request. In names (switches, paths) a hyphen is written \-, the
// minus sign that copies as "-"; in sentences it stays a hyphen.
std::string roff(std::string_view text, bool name = false) {
    std::string out;
    for (const char c : text) {
        if (c == '\\')
            out += "\\e";
        else if (c == '-' && name)
            out += "\\-";
        else
            out += c;
    }
    if (!out.empty() && (out.front() == '.' || out.front() == '\'')) out.insert(0, "\\&");
    return out;
}

void section(std::string& out, std::string_view title, std::span<const Entry> entries, bool bold) {
    out += ".SH ";
    out += title;
    out += '\n';
    for (const Entry& e : entries) {
        out += ".TP\n";
        out += bold ? "\\fB" : "\\fI";
        out += roff(e.name, true);
        out += "\\fR";
        if (!e.args.empty()) {
            out += " \\fI";
            out += roff(e.args);
            out += "\\fR";
        }
        out += '\n';
        out += roff(e.meaning);
        out += '\n';
    }
}

// The help's meanings start at this column and end before the 80th.
constexpr std::size_t kIndent = 26;
constexpr std::size_t kWidth = 79;

// Appends the text, wrapped at spaces into lines that start at kIndent, and a line end.
void wrapInto(std::string& out, std::string_view text) {
    std::size_t column = kIndent;
    bool first = true;
    while (!text.empty()) {
        const std::size_t space = text.find(' ');
        const std::string_view word = text.substr(0, space);
        text = space == std::string_view::npos ? std::string_view{} : text.substr(space + 1);
        // Counted in bytes: accented letters make a line a little shorter, never longer.
        if (!first && column + 1 + word.size() > kWidth) {
            out += '\n' + std::string(kIndent, ' ');
            column = kIndent;
        } else if (!first) {
            out += ' ';
            ++column;
        }
        out += word;
        column += word.size();
        first = false;
    }
    out += '\n';
}

} // namespace

std::span<const Entry> switches() {
    return kSwitches;
}
std::span<const Entry> environment() {
    return kEnvironment;
}
std::span<const Entry> files() {
    return kFiles;
}

std::string helpText(std::string_view version) {
    std::string out = "Ombry Voice ";
    out += version;
    out += " : assistant de dictée.\n\n"
           "Sans argument, le programme se lance sur le bureau : maintiens la touche de\n"
           "dictée, parle, relâche.\n\n"
           "Modes :\n";
    for (const Entry& e : kSwitches) {
        std::string head = "  ";
        head += e.name;
        if (!e.args.empty()) {
            head += ' ';
            head += e.args;
        }
        out += head;
        out += head.size() < kIndent ? std::string(kIndent - head.size(), ' ')
                                     : '\n' + std::string(kIndent, ' ');
        wrapInto(out, e.meaning);
    }
    out += "\nVoir aussi : man ombry-voice\n";
    return out;
}

std::string manPage(std::string_view version, std::string_view date) {
    std::string out = ".TH OMBRY\\-VOICE 1 \"";
    out += date;
    out += "\" \"Ombry Voice ";
    out += version;
    out += "\" \"Commandes\"\n";
    out += ".SH NOM\nombry\\-voice \\- assistant de dictée pour le bureau\n";
    out += ".SH SYNOPSIS\n.B ombry\\-voice\n.RI [ MODE ]\n";
    out += ".SH DESCRIPTION\n"
           "Sans argument, \\fBombry\\-voice\\fR se lance sur le bureau et y reste, "
           "avec une icône dans la zone de notification.\n"
           "Maintiens la touche de dictée n'importe où, parle et relâche : la parole est "
           "transcrite, nettoyée des hésitations et des faux départs, et s'écrit au curseur de "
           "l'application au premier plan.\n"
           "Il corrige, traduit ou lit à voix haute le texte sélectionné, applique des "
           "commandes vocales, sous\\-titre en français un appel en anglais et enregistre les "
           "réunions.\n"
           ".PP\nUne seule copie tourne par utilisateur : un second lancement montre la fenêtre "
           "de la première et se termine.\n"
           ".PP\nAvec un mode, le programme fait une seule chose, écrit ce qu'il a obtenu sur la "
           "sortie standard (une erreur sur une ligne qui commence par «\\ erreur:\\ ») et se "
           "termine, sans fenêtre ni touche de dictée.\n";
    section(out, "MODES", kSwitches, true);
    section(out, "ENVIRONNEMENT", kEnvironment, true);
    section(out, "FICHIERS", kFiles, false);
    out += ".SH VOIR AUSSI\n.BR espeak\\-ng (1),\n.BR pocketsphinx (1)\n";
    return out;
}

} // namespace ombry::usage
