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
    FakeCapture(FakeAudio& audio, FakeAudio::Stream& stream, SampleFormat format)
        : audio_(audio), stream_(stream), format_(format) {}
    void stop() override {
        std::lock_guard lock(audio_.mutex_);
        stream_ = {};
    }
    SampleFormat sourceFormat() const override { return format_; }

private:
    FakeAudio& audio_;
    FakeAudio::Stream& stream_;
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
    {
        std::lock_guard lock(mutex_);
        capturedFrom = source;
        ++captures;
    }
    return open(mic_, std::move(onPcm), std::move(onEnd));
}

std::unique_ptr<CaptureStream> FakeAudio::captureOutput(const QString& appId, PcmHandler onPcm,
                                                        EndHandler onEnd) {
    if (!available || outputFails) throw std::runtime_error("son de l'ordinateur indisponible");
    {
        std::lock_guard lock(mutex_);
        outputFor = appId;
    }
    return open(output_, std::move(onPcm), std::move(onEnd));
}

std::unique_ptr<CaptureStream> FakeAudio::open(Stream& stream, PcmHandler onPcm, EndHandler onEnd) {
    std::lock_guard lock(mutex_);
    stream = {std::move(onPcm), std::move(onEnd)};
    return std::make_unique<FakeCapture>(*this, stream, &stream == &mic_ ? format : SampleFormat{});
}

void FakeAudio::play(const QByteArray& pcm, int rate) {
    std::lock_guard lock(mutex_);
    played << qMakePair(pcm, rate);
}

void FakeAudio::feed(Stream& stream, const QByteArray& pcm) {
    PcmHandler handler;
    {
        std::lock_guard lock(mutex_);
        handler = stream.onPcm;
    }
    if (handler) handler(pcm);
}

void FakeAudio::end(Stream& stream, const QString& reason) {
    EndHandler handler;
    {
        std::lock_guard lock(mutex_);
        handler = std::exchange(stream, {}).onEnd;
    }
    if (handler) handler(reason);
}

bool FakeAudio::capturing(const Stream& stream) const {
    std::lock_guard lock(mutex_);
    return bool(stream.onPcm);
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

namespace {
// A fake made and handed to the platform by its setter; the platform owns it.
template <typename Fake, typename Service>
Fake* install(void (Platform::*set)(std::unique_ptr<Service>)) {
    auto fake = std::make_unique<Fake>();
    Fake* raw = fake.get();
    (Platform::current().*set)(std::move(fake));
    return raw;
}
} // namespace

FakePlatform::FakePlatform()
    : clock_(install<ManualClock>(&Platform::setClock)),
      keychain_(install<FakeKeychain>(&Platform::setKeychain)),
      notifier_(install<FakeNotifier>(&Platform::setNotifier)),
      machine_(install<FakeMachine>(&Platform::setMachine)),
      browser_(install<FakeBrowser>(&Platform::setBrowser)),
      keyboard_(install<FakeKeyboard>(&Platform::setKeyboard)),
      keyPoster_(install<FakeKeyPoster>(&Platform::setKeyPoster)),
      clipboard_(install<FakeClipboard>(&Platform::setClipboard)),
      windows_(install<FakeWindows>(&Platform::setWindows)),
      audio_(install<FakeAudio>(&Platform::setAudio)),
      speech_(install<FakeSpeech>(&Platform::setSpeech)),
      accessibility_(install<FakeAccessibility>(&Platform::setAccessibility)),
      session_(install<FakeSession>(&Platform::setSession)),
      shortcuts_(install<FakeShortcuts>(&Platform::setShortcuts)) {}

FakePlatform::~FakePlatform() {
    // The fakes stay installed: shared objects made during the test may still hold on to them
    // until the process ends. Only the clock goes back to the system's.
    Platform::current().setClock(std::make_unique<SystemClock>());
}

} // namespace ombry::test
