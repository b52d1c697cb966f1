#include "FakePlatform.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace ombry::test {

std::optional<QString> FakeKeychain::genericPassword(const QString& service,
                                                     const QString& account) {
    const auto it = items.constFind({service, account});
    if (it == items.constEnd()) return std::nullopt;
    return *it;
}

void FakeNotifier::post(const QString& title, const QString& body) {
    std::lock_guard lock(mutex_);
    posted_.append({title, body});
}

QList<FakeNotifier::Posted> FakeNotifier::posted() const {
    std::lock_guard lock(mutex_);
    return posted_;
}

bool FakeKeyboard::start(Handler handler) {
    if (!available) return false;
    handler_ = std::move(handler);
    return true;
}

void FakeKeyboard::send(const KeyEvent& event) {
    if (event.type == KeyEvent::Type::FlagsChanged) flags = event.flags;
    if (handler_) handler_(event);
}

bool FakeKeyboard::swallows(uint16_t keyCode, uint64_t modifiers) const {
    return swallowed.contains(KeyCombo{keyCode, modifiers}) ||
           swallowed.contains(KeyCombo::withAnyModifiers(keyCode));
}

bool FakeKeyPoster::typeText(const QString& text) {
    if (fails) return false;
    typed << text;
    return true;
}

bool FakeKeyPoster::post(uint16_t keyCode, uint64_t modifiers) {
    if (fails) return false;
    const KeyCombo combo{keyCode, modifiers};
    posted << combo;
    if (onPost) onPost(combo);
    return true;
}

void FakeClipboard::restore(const ClipboardSnapshot& s) {
    content = s;
    onFetched = {};
    ++changes;
}

void FakeClipboard::clear() {
    content.clear();
    onFetched = {};
    ++changes;
}

void FakeClipboard::setText(const QString& text, bool alsoPrimary,
                            std::function<void(const ClipboardFetch&)> fetched) {
    content = {{QStringLiteral("text/plain"), text.toUtf8()}};
    if (alsoPrimary) select(text);
    onFetched = std::move(fetched);
    ++changes;
}

std::optional<QString> FakeClipboard::text() {
    for (const auto& [type, data] : content)
        if (type == QLatin1String("text/plain") || type.startsWith(QLatin1String("text/plain;")))
            return QString::fromUtf8(data);
    return std::nullopt;
}

ClipboardSnapshot FakeClipboard::selectionSnapshot() {
    if (!selection) return {};
    return {{QStringLiteral("text/plain"), selection->toUtf8()}};
}

void FakeClipboard::restoreSelection(const ClipboardSnapshot& s) {
    std::optional<QString> text;
    for (const auto& [type, data] : s)
        if (type == QLatin1String("text/plain")) text = QString::fromUtf8(data);
    select(text);
}

void FakeClipboard::select(const std::optional<QString>& text) {
    selection = text;
    ++selectionChanges;
}

std::optional<QString> FakeClipboard::fetch(std::optional<uint64_t> readerWindow) {
    if (onFetched) {
        // A copy: the callback may change the clipboard, and with it onFetched.
        const auto fetched = onFetched;
        fetched({[readerWindow](const AppWindow& w) {
            return !readerWindow || (*readerWindow != 0 && w.id == *readerWindow);
        }});
    }
    return text();
}

class FakeCapture final : public CaptureStream {
public:
    FakeCapture(FakeAudio& audio, SampleFormat format) : audio_(audio), format_(format) {}
    void stop() override {
        std::lock_guard lock(audio_.mutex_);
        audio_.onPcm_ = {};
        audio_.onEnd_ = {};
    }
    SampleFormat sourceFormat() const override { return format_; }

private:
    FakeAudio& audio_;
    SampleFormat format_;
};

namespace {
bool named(const QList<AudioSource>& sources, const QString& name) {
    return std::any_of(sources.begin(), sources.end(),
                       [&](const AudioSource& s) { return s.name == name; });
}
} // namespace

bool FakeAudio::microphoneAvailable() {
    return available && named(mics, defaultName);
}

std::unique_ptr<CaptureStream> FakeAudio::capture(const QString& source, PcmHandler onPcm,
                                                  EndHandler onEnd) {
    if (!available || captureFails) throw std::runtime_error("micro indisponible (test)");
    const QString name = source.isEmpty() ? defaultName : source;
    if (!named(mics, name) && !named(monitors, name))
        throw std::runtime_error("source absente (test)");
    std::lock_guard lock(mutex_);
    capturedFrom = source;
    ++captures;
    onPcm_ = std::move(onPcm);
    onEnd_ = std::move(onEnd);
    return std::make_unique<FakeCapture>(*this, format);
}

void FakeAudio::play(const QByteArray& pcm, int rate) {
    std::lock_guard lock(mutex_);
    played << qMakePair(pcm, rate);
}

void FakeAudio::feed(const QByteArray& pcm) {
    PcmHandler handler;
    {
        std::lock_guard lock(mutex_);
        handler = onPcm_;
    }
    if (handler) handler(pcm);
}

void FakeAudio::end(const QString& reason) {
    EndHandler handler;
    {
        std::lock_guard lock(mutex_);
        handler = std::exchange(onEnd_, {});
        onPcm_ = {};
    }
    if (handler) handler(reason);
}

bool FakeAudio::capturing() const {
    std::lock_guard lock(mutex_);
    return bool(onPcm_);
}

class FakeOutputCapture final : public CaptureStream {
public:
    explicit FakeOutputCapture(FakeAudio& audio) : audio_(audio) {}
    void stop() override {
        std::lock_guard lock(audio_.mutex_);
        audio_.onOutputPcm_ = {};
        audio_.onOutputEnd_ = {};
    }

private:
    FakeAudio& audio_;
};

std::unique_ptr<CaptureStream> FakeAudio::captureOutput(const QString& appId, PcmHandler onPcm,
                                                        EndHandler onEnd) {
    if (!available || outputFails) throw std::runtime_error("son de l'ordinateur indisponible");
    std::lock_guard lock(mutex_);
    outputFor = appId;
    ++outputCaptures;
    onOutputPcm_ = std::move(onPcm);
    onOutputEnd_ = std::move(onEnd);
    return std::make_unique<FakeOutputCapture>(*this);
}

void FakeAudio::feedOutput(const QByteArray& pcm) {
    PcmHandler handler;
    {
        std::lock_guard lock(mutex_);
        handler = onOutputPcm_;
    }
    if (handler) handler(pcm);
}

void FakeAudio::endOutput(const QString& reason) {
    EndHandler handler;
    {
        std::lock_guard lock(mutex_);
        handler = std::exchange(onOutputEnd_, {});
        onOutputPcm_ = {};
    }
    if (handler) handler(reason);
}

bool FakeAudio::capturingOutput() const {
    std::lock_guard lock(mutex_);
    return bool(onOutputPcm_);
}

QCoro::Task<std::optional<FocusedElement>> FakeAccessibility::focused(int64_t pid) {
    ++asked;
    if (!focus || (pid > 0 && focus->pid != pid)) co_return std::nullopt;
    co_return focus;
}

QCoro::Task<std::optional<FocusedElement>> FakeAccessibility::reread(AccessibleElement element) {
    if (!focus || !(focus->element == element)) co_return std::nullopt;
    co_return focus;
}

QCoro::Task<std::optional<QString>> FakeAccessibility::text(AccessibleElement element, int start,
                                                            int end) {
    if (!focus || !(focus->element == element)) co_return std::nullopt;
    const QList<uint> chars = content.toUcs4();
    start = std::clamp(start, 0, int(chars.size()));
    end = std::clamp(end, start, int(chars.size()));
    co_return QString::fromUcs4(reinterpret_cast<const char32_t*>(chars.constData()) + start,
                                end - start);
}

FakePlatform::FakePlatform() {
    auto clock = std::make_unique<ManualClock>();
    auto keychain = std::make_unique<FakeKeychain>();
    auto notifier = std::make_unique<FakeNotifier>();
    auto machine = std::make_unique<FakeMachine>();
    auto browser = std::make_unique<FakeBrowser>();
    auto keyboard = std::make_unique<FakeKeyboard>();
    auto keyPoster = std::make_unique<FakeKeyPoster>();
    auto clipboard = std::make_unique<FakeClipboard>();
    auto windows = std::make_unique<FakeWindows>();
    auto audio = std::make_unique<FakeAudio>();
    auto speech = std::make_unique<FakeSpeech>();
    auto accessibility = std::make_unique<FakeAccessibility>();
    auto session = std::make_unique<FakeSession>();
    auto shortcuts = std::make_unique<FakeShortcuts>();
    session_ = session.get();
    shortcuts_ = shortcuts.get();
    clock_ = clock.get();
    keychain_ = keychain.get();
    notifier_ = notifier.get();
    machine_ = machine.get();
    browser_ = browser.get();
    keyboard_ = keyboard.get();
    keyPoster_ = keyPoster.get();
    clipboard_ = clipboard.get();
    windows_ = windows.get();
    audio_ = audio.get();
    speech_ = speech.get();
    accessibility_ = accessibility.get();
    Platform& p = Platform::current();
    p.setClock(std::move(clock));
    p.setKeychain(std::move(keychain));
    p.setNotifier(std::move(notifier));
    p.setMachine(std::move(machine));
    p.setBrowser(std::move(browser));
    p.setKeyboard(std::move(keyboard));
    p.setKeyPoster(std::move(keyPoster));
    p.setClipboard(std::move(clipboard));
    p.setWindows(std::move(windows));
    p.setAudio(std::move(audio));
    p.setSpeech(std::move(speech));
    p.setAccessibility(std::move(accessibility));
    p.setSession(std::move(session));
    p.setShortcuts(std::move(shortcuts));
}

FakePlatform::~FakePlatform() {
    // The fakes stay installed: shared objects made during the test may still hold on to them
    // until the process ends. Only the clock goes back to the system's.
    Platform::current().setClock(std::make_unique<SystemClock>());
}

} // namespace ombry::test
