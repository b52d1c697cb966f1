#include <QElapsedTimer>
#include <QTest>

#include "platform/Desktop.h"
#include "platform/wayland/Keymap.h"
#include "platform/wayland/Keysyms.h"
#include "platform/wayland/Pipes.h"

#include <linux/input-event-codes.h>
#include <unistd.h>
#include <xkbcommon/xkbcommon.h>

using namespace ombry;
using namespace ombry::wayland;

namespace {

// The keymap of a layout, made as the compositor would hand it out.
QByteArray layoutText(const char* layout, const char* variant) {
    qputenv("XKB_DEFAULT_LAYOUT", layout);
    qputenv("XKB_DEFAULT_VARIANT", variant);
    const std::optional<Keymap> map = Keymap::fromDefaults();
    qunsetenv("XKB_DEFAULT_LAYOUT");
    qunsetenv("XKB_DEFAULT_VARIANT");
    return map ? map->text() : QByteArray();
}

// What pressing the keys of text keymaps types, read back through xkbcommon.
QString typed(const QList<TextKeymap>& pieces) {
    QString out;
    xkb_context* context = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
    for (const TextKeymap& piece : pieces) {
        xkb_keymap* keymap =
            xkb_keymap_new_from_string(context, piece.text.constData(), XKB_KEYMAP_FORMAT_TEXT_V1,
                                       XKB_KEYMAP_COMPILE_NO_FLAGS);
        if (!keymap) return QStringLiteral("<keymap refusé>");
        for (const uint32_t key : piece.keys) {
            const xkb_keysym_t* syms = nullptr;
            xkb_keymap_key_get_syms_by_level(keymap, key + 8, 0, 0, &syms);
            const char32_t c = syms[0] == XKB_KEY_Return ? U'\n' : xkb_keysym_to_utf32(syms[0]);
            out += QString::fromUcs4(&c, 1);
        }
        xkb_keymap_unref(keymap);
    }
    xkb_context_unref(context);
    return out;
}

} // namespace

// The keys posted on Wayland are found in the user's keymap, and texts are typed through
// keymaps made for them.
class TstWaylandKeymap : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void theProgramsKeysInTheUsersLayout() {
        const std::optional<Keymap> dvorak = Keymap::forPosting(layoutText("us", "dvorak"));
        QVERIFY(dvorak);
        // On Dvorak 'v' is the key of the full stop on QWERTY, 'c' that of 'i'.
        QCOMPARE(dvorak->evdevKey(keycode::V).value_or(0), uint32_t(KEY_DOT));
        QCOMPARE(dvorak->evdevKey(keycode::C).value_or(0), uint32_t(KEY_I));
        QCOMPARE(dvorak->evdevKey(keycode::LeftControl).value_or(0), uint32_t(KEY_LEFTCTRL));
        QCOMPARE(dvorak->evdevKey(keycode::Insert).value_or(0), uint32_t(KEY_INSERT));

        // On a French layout Right Alt is AltGr.
        const std::optional<Keymap> french = Keymap::forPosting(layoutText("fr", ""));
        QVERIFY(french);
        QCOMPARE(french->evdevKey(keycode::V).value_or(0), uint32_t(KEY_V));
        QCOMPARE(french->evdevKey(keycode::RightOption).value_or(0), uint32_t(KEY_RIGHTALT));

        const uint32_t control = french->modifierMask(modifier::Control);
        const uint32_t shift = french->modifierMask(modifier::Shift);
        QVERIFY(control && shift && control != shift);
        QCOMPARE(french->modifierMask(modifier::Control | modifier::Shift), control | shift);
        QCOMPARE(french->modifierMask(0), uint32_t(0));
    }

    // A keymap that cannot post the program's keys (another program's typing keymap, or one
    // that does not compile) gives way to the default layout.
    void keymapsWithoutTheKeysGiveWay() {
        const QList<TextKeymap> typing = keymapsForText(QStringLiteral("xyz"));
        QCOMPARE(typing.size(), 1);
        QVERIFY(Keymap::fromText(typing.first().text)->madeForText());
        QVERIFY(!Keymap::fromText(layoutText("us", ""))->madeForText());
        for (const QByteArray& text : {typing.first().text, QByteArray("garbage"), QByteArray()}) {
            const std::optional<Keymap> map = Keymap::forPosting(text);
            QVERIFY(map);
            QCOMPARE(map->evdevKey(keycode::V).value_or(0), uint32_t(KEY_V));
        }
    }

    void textsTypedThroughTheirOwnKeymaps() {
        const QString text = QStringLiteral("Tête à tête,\nœuvre « 20 € » 🙂");
        const QList<TextKeymap> one = keymapsForText(text);
        QCOMPARE(one.size(), 1);
        QCOMPARE(typed(one), text);
        // A repeated character is the same key.
        QCOMPARE(one.first().keys[2], one.first().keys[7]); // "t" of "Tête" and of "tête"
        // Pieces of at most three distinct characters each give the same text.
        const QList<TextKeymap> pieces = keymapsForText(text, 3);
        QVERIFY(pieces.size() > 3);
        QCOMPARE(typed(pieces), text);
        // Control characters other than line ends and tabs are left out.
        QCOMPARE(typed(keymapsForText(QStringLiteral("a\tb\x01"))), QStringLiteral("a\tb"));
        QVERIFY(keymapsForText(QString()).isEmpty());
    }

    // Typed through the desktop by symbol, a character the user's layout lacks would vanish:
    // it goes in its plainer form, or the text is not typed at all.
    void textsFitTheUsersLayout() {
        const auto typedOn = [](const char* layout, const QString& text) -> QString {
            const std::optional<Keymap> map = Keymap::fromText(layoutText(layout, ""));
            const auto syms = keysymsForLayout(text, [&](uint32_t s) { return map->hasKeysym(s); });
            if (!syms) return QStringLiteral("(rien)");
            QString out;
            for (const uint32_t s : *syms)
                out += QChar(char16_t(xkb_keysym_to_utf32(s)));
            return out;
        };
        const QString french = QStringLiteral("L’été à 20 €, « œuvre »\u00a0: À bientôt…");
        QCOMPARE(typedOn("fr", french), QStringLiteral("L’été à 20 €, « oeuvre » : A bientot..."));
        QCOMPARE(typedOn("us", QStringLiteral("L’été, ça ira")), QStringLiteral("L'ete, ca ira"));
        QCOMPARE(typedOn("fr", QStringLiteral("le mot 中文")), QStringLiteral("(rien)"));
        // € is named EuroSign on the layouts, not by its code point.
        QCOMPARE(keysymsOfText(QStringLiteral("€")), QList<uint32_t>{0x20ac});
    }

    // Reading the formats of a selection: a writer that never closes costs the deadline once.
    void pipesReadTogetherUntilTheDeadline() {
        int done[2], silent[2];
        QVERIFY(pipe(done) == 0 && pipe(silent) == 0);
        QCOMPARE(write(done[1], "abc", 3), ssize_t(3));
        close(done[1]);
        QElapsedTimer clock;
        clock.start();
        const QList<PipeRead> reads = readPipes({done[0], silent[0]}, 200);
        QVERIFY(clock.elapsed() >= 190 && clock.elapsed() < 400);
        QCOMPARE(reads.size(), 2);
        QVERIFY(reads[0].complete);
        QCOMPARE(reads[0].bytes, QByteArray("abc"));
        QVERIFY(!reads[1].complete);
        // Writing to a pipe nobody reads fails instead of ending the process.
        close(silent[0]);
        QCOMPARE(writeSome(silent[1], "x", 1), ssize_t(-1));
        QCOMPARE(errno, EPIPE);
        for (const int fd : {done[0], silent[1]})
            close(fd);
    }
};

QTEST_GUILESS_MAIN(TstWaylandKeymap)
#include "tst_waylandkeymap.moc"
