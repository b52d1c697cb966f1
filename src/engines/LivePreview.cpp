#include "engines/LivePreview.h"

#include "engines/OfflineSpeech.h"
#include "platform/Paths.h"

#include <QPointer>

#include <memory>

namespace ombry {

QString PreviewText::add(const QString& text, bool isFinal) {
    QString joined = finalized_;
    if (!joined.isEmpty() && !text.isEmpty() && !joined.back().isSpace() && !text.front().isSpace())
        joined += QLatin1Char(' ');
    joined += text;
    if (isFinal) finalized_ = joined;
    return joined;
}

// The worker's decoder and what it was loaded from, kept from one session to the next so that
// a dictation does not wait for the model again.
struct LivePreview::Decoder {
    OfflineSpeech::Model model;
    QString grammar;
    std::unique_ptr<OfflineSpeech::Decoder> decoder;

    bool serves(const OfflineSpeech::Model& m, const QString& g) const {
        return decoder && g == grammar && m.acoustic == model.acoustic &&
               m.dictionary == model.dictionary && m.languageModel == model.languageModel;
    }
};

LivePreview::LivePreview(QObject* parent) : QObject(parent) {}

LivePreview::~LivePreview() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        quit_ = true;
        accepting_ = false;
        audio_.clear();
    }
    wake_.notify_all();
    if (worker_.joinable()) worker_.join();
}

void LivePreview::start(const QString& language, bool longForm, bool download) {
    Q_UNUSED(download);
    const QString grammar = grammar_.isEmpty() ? OfflineSpeech::grammarFromEnvironment() : grammar_;
    const uint64_t session = ++lastSession_;
    shown_ = session;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        request_ = Request{language, longForm, grammar, session};
        session_ = session;
        accepting_ = true;
        audio_.clear();
    }
    if (!worker_.joinable()) worker_ = std::thread([this] { run(); });
    wake_.notify_all();
}

void LivePreview::feed(const QByteArray& pcm) {
    if (pcm.isEmpty()) return;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!accepting_) return;
        audio_.push_back(pcm);
    }
    wake_.notify_all();
}

void LivePreview::stop() {
    shown_ = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        request_.reset();
        session_ = 0;
        accepting_ = false;
        audio_.clear();
    }
    wake_.notify_all();
}

void LivePreview::publish(uint64_t session, const QString& text) {
    // Queued to this object's thread; a preview destroyed meanwhile drops the call, and one
    // stopped or restarted since ignores the text of the old session.
    QMetaObject::invokeMethod(
        this,
        [this, session, text] {
            if (session == shown_ && onText) onText(text);
        },
        Qt::QueuedConnection);
}

void LivePreview::run() {
    Decoder loaded;
    PreviewText running;
    uint64_t current = 0; // the session being decoded, 0 when none
    bool longForm = false;
    bool heardSpeech = false;
    QString lastShown;

    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        wake_.wait(lock, [&] {
            return quit_ || request_ || !audio_.empty() || (current != 0 && current != session_);
        });
        if (quit_) break;

        if (request_) {
            const Request request = *request_;
            request_.reset();
            lock.unlock();
            if (loaded.decoder && loaded.decoder->inUtterance()) loaded.decoder->endUtterance();
            current = 0;
            const auto model = OfflineSpeech::modelFor(request.language, Paths::dataFolder());
            if (model && !loaded.serves(*model, request.grammar)) {
                loaded.decoder.reset();
                loaded.decoder =
                    OfflineSpeech::Decoder::open(*model, request.grammar, nullptr, true);
                loaded.model = *model;
                loaded.grammar = request.grammar;
            }
            const bool ready = model && loaded.decoder && loaded.decoder->startUtterance();
            lock.lock();
            if (!ready) {
                // No model for this language: the preview stays silent and keeps nothing.
                if (session_ == request.session) {
                    accepting_ = false;
                    audio_.clear();
                }
                continue;
            }
            current = request.session;
            longForm = request.longForm;
            heardSpeech = false;
            running.reset();
            lastShown.clear();
            continue;
        }

        if (current != session_) {
            // Stopped: the open utterance is closed and its text never shown.
            if (loaded.decoder && loaded.decoder->inUtterance()) loaded.decoder->endUtterance();
            current = 0;
            continue;
        }

        std::deque<QByteArray> pending;
        pending.swap(audio_);
        const uint64_t session = current;
        lock.unlock();

        OfflineSpeech::Decoder& decoder = *loaded.decoder;
        QString text;
        for (const QByteArray& pcm : pending) {
            // A backlog is dropped as soon as the preview is stopped, restarted or destroyed.
            {
                std::lock_guard<std::mutex> check(mutex_);
                if (quit_ || request_ || session_ != session) break;
            }
            decoder.process(pcm);
            if (!longForm) continue;
            // Long recordings are cut at each pause: the words so far become final and the
            // decoder starts afresh, so its search never grows with the length of a meeting.
            const bool inSpeech = decoder.inSpeech();
            if (heardSpeech && !inSpeech) {
                const QString piece = decoder.endUtterance();
                if (!piece.isEmpty()) running.add(piece, true);
                decoder.startUtterance();
            }
            heardSpeech = inSpeech;
        }
        text = running.add(decoder.hypothesis(), false);
        if (text != lastShown) {
            lastShown = text;
            publish(session, text);
        }
        lock.lock();
    }
}

} // namespace ombry
