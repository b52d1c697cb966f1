#include "calls/CallTranslator.h"

#include "audio/AudioRecorder.h"
#include "calls/CallSegmenter.h"
#include "correction/Translator.h"
#include "data/UserDefaults.h"
#include "desktop/Log.h"
#include "engines/GeminiSpeech.h"
#include "engines/LivePreview.h"
#include "net/Errors.h"
#include "platform/Clock.h"
#include "platform/Platform.h"
#include "platform/SerialQueue.h"

#include <QCoreApplication>
#include <QPointer>
#include <QStringList>

namespace ombry {
namespace {

// The French words of a failure to start: an EngineError::http speaks through its body,
// capitalised; another engine error through its description; anything else is a capture that
// did not open.
QString startMessage(const std::exception& e) {
    if (const auto* error = dynamic_cast<const EngineError*>(&e)) {
        if (error->kind() == EngineError::Kind::Http) {
            QString body = error->body();
            if (!body.isEmpty()) body[0] = body[0].toUpper();
            return body;
        }
        return error->description();
    }
    return QStringLiteral("Impossible d'écouter le son de l'appel : %1").arg(describe(e));
}

} // namespace

CallTranslator& CallTranslator::shared() {
    static CallTranslator* instance = new CallTranslator(QCoreApplication::instance());
    return *instance;
}

CallTranslator::CallTranslator(QObject* parent)
    : QObject(parent), queue_(std::make_unique<SerialQueue>(QString::fromLatin1(kQueueLabel))),
      preview_(std::make_unique<LivePreview>(this)), segmenter_(std::make_unique<CallSegmenter>()) {
    target_ = UserDefaults::standard().stringValue(QString::fromLatin1(kTargetKey));
    if (target_ && target_->isEmpty()) target_.reset();
}

CallTranslator::~CallTranslator() {
    accepting_ = false;
    // The capture ends before the queue and the segmenter it feeds.
    queue_->sync([this] {
        if (stream_) stream_->stop();
        stream_.reset();
    });
    queue_.reset();
}

void CallTranslator::setTargetBundleID(const std::optional<QString>& id) {
    target_ = id && !id->isEmpty() ? id : std::nullopt;
    if (target_)
        UserDefaults::standard().setValue(QString::fromLatin1(kTargetKey), *target_);
    else
        UserDefaults::standard().remove(QString::fromLatin1(kTargetKey));
    emit targetChanged();
}

std::optional<QString> CallTranslator::targetName() const {
    if (!target_) return std::nullopt;
    if (const auto it = names_.constFind(*target_); it != names_.constEnd()) return *it;
    return target_->section(QLatin1Char('.'), -1);
}

QList<PlayingApp> CallTranslator::playingApps() {
    const QList<PlayingApp> apps = Platform::current().audio().playingApps();
    bool renamed = false;
    for (const PlayingApp& app : apps) {
        if (names_.value(app.id) == app.name) continue;
        names_.insert(app.id, app.name);
        renamed = renamed || app.id == target_;
    }
    if (renamed) emit targetChanged();
    return apps;
}

void CallTranslator::setRunning(bool v) {
    running_ = v;
    emit runningChanged();
}
void CallTranslator::setLive(const QString& v) {
    live_ = v;
    emit liveChanged();
}
void CallTranslator::setError(const std::optional<QString>& v) {
    error_ = v;
    emit errorChanged();
}
void CallTranslator::setLines(QList<Line> v) {
    lines_ = std::move(v);
    emit linesChanged();
}

void CallTranslator::showWindow() {
    if (onShowWindow) onShowWindow();
}

void CallTranslator::start() {
    if (running_) return;
    const uint64_t session = ++session_;
    queue_->async([this] { segmenter_->reset(); });
    setLines({});
    setLive({});
    setError(std::nullopt);
    startedAt_ = Platform::current().clock().now();
    setRunning(true);
    showWindow();

    QPointer<CallTranslator> self(this);
    preview_->onText = [self](const QString& text) {
        if (self) self->setLive(text);
    };
    preview_->start(QStringLiteral("en"), true, true);

    // The chosen application must run: it is looked for first, on the queue, so that its
    // absence is told in words rather than as a capture that never hears anything. One that
    // runs but plays nothing now is waited for: the capture hears its next stream.
    const std::optional<QString> target = target_;
    const QString absent = QStringLiteral("ouvre %1 d'abord, puis démarre les sous-titres")
                               .arg(targetName().value_or(QStringLiteral("l'appli")));
    accepting_ = true;
    queue_->async([this, self, session, target, absent] {
        std::optional<std::pair<QString, QString>> failure; // (message, logged)
        QList<PlayingApp> apps;
        if (target) {
            apps = Platform::current().audio().playingApps();
            if (std::none_of(apps.begin(), apps.end(),
                             [&](const PlayingApp& a) { return a.id == *target; }) &&
                !Platform::current().audio().applicationRunning(*target)) {
                const EngineError e = EngineError::http(QStringLiteral("Appel"), 0, absent);
                failure = std::make_pair(startMessage(e), e.description());
            }
        }
        try {
            if (!failure)
                stream_ = Platform::current().audio().captureOutput(
                    target.value_or(QString()),
                    [this, session](const QByteArray& pcm) {
                        if (!accepting_ || session_ != session) return;
                        preview_->feed(pcm);
                        queue_->async([this, session, pcm] { receive(session, pcm); });
                    },
                    [this, self, session](const QString& reason) {
                        QMetaObject::invokeMethod(
                            this,
                            [self, session, reason] {
                                if (!self || self->session_ != session || !self->running_) return;
                                // The output or the server went away: no flush, the state says it.
                                self->accepting_ = false;
                                self->preview_->stop();
                                self->setError(QStringLiteral("Le son de l'appel s'est arrêté : %1")
                                                   .arg(reason));
                                self->setRunning(false);
                                Log::write(QStringLiteral("appel: ") + reason);
                            },
                            Qt::QueuedConnection);
                    });
        } catch (const std::exception& e) {
            failure = std::make_pair(startMessage(e), describe(e));
        }
        if (stream_ && (session_ != session || !accepting_)) {
            // Stopped while the capture was opening.
            stream_->stop();
            stream_.reset();
        }
        QMetaObject::invokeMethod(
            this,
            [self, session, failure, apps] {
                if (!self || self->session_ != session) return;
                for (const PlayingApp& app : apps)
                    self->names_.insert(app.id, app.name);
                if (failure)
                    self->failStart(failure->first, failure->second);
                else if (self->running_)
                    Log::write(
                        QStringLiteral("appel: sous-titres démarrés (%1)")
                            .arg(self->targetName().value_or(QStringLiteral("tout l'ordinateur"))));
            },
            Qt::QueuedConnection);
    });
}

void CallTranslator::failStart(const QString& message, const QString& logged) {
    accepting_ = false;
    setError(message);
    Log::write(QStringLiteral("appel: ") + logged);
    setRunning(false);
    preview_->stop();
}

void CallTranslator::stop() {
    if (!running_) return;
    setRunning(false);
    accepting_ = false;
    preview_->stop();
    // The capture stops on the queue, then the sentence under way still goes out.
    queue_->async([this] {
        if (stream_) stream_->stop();
        stream_.reset();
        flush();
    });
    Log::write(QStringLiteral("appel: arrêt, %1 phrases").arg(lines_.size()));
}

void CallTranslator::drainQueue() {
    queue_->sync([] {});
}

void CallTranslator::receive(uint64_t session, const QByteArray& pcm) {
    if (!accepting_ || session_ != session) return;
    if (std::optional<QByteArray> sentence = segmenter_->add(pcm)) send(*sentence);
}

void CallTranslator::flush() {
    if (std::optional<QByteArray> sentence = segmenter_->flush()) send(*sentence);
}

void CallTranslator::send(const QByteArray& pcm) {
    const int64_t id = nextID_++;
    const QByteArray wav = AudioRecorder::wav(pcm);
    QPointer<CallTranslator> self(this);
    QMetaObject::invokeMethod(
        this,
        [self, id, wav] {
            if (self) self->addLine(id, wav);
        },
        Qt::QueuedConnection);
}

void CallTranslator::addLine(int64_t id, const QByteArray& wav) {
    // The line takes its place now, with the preview's words; the answer fills it in later,
    // whatever the order the answers come back in.
    QList<Line> lines = lines_;
    lines << Line{id, live_, QString(), false};
    setLines(lines);
    setLive({});
    QStringList context;
    for (qsizetype i = std::max<qsizetype>(0, lines.size() - 4); i < lines.size(); ++i)
        context << lines[i].en;
    translate(id, wav, context.join(QLatin1Char(' ')));
}

QCoro::Task<void> CallTranslator::translate(int64_t id, QByteArray wav, QString context) {
    QPointer<CallTranslator> self(this);
    auto find = [&self, id]() -> qsizetype {
        if (!self) return -1;
        for (qsizetype i = 0; i < self->lines_.size(); ++i)
            if (self->lines_[i].id == id) return i;
        return -1;
    };
    std::optional<QString> firstError;
    try {
        const GeminiSpeech::Translation t =
            co_await GeminiSpeech::transcribeAndTranslate(std::move(wav), std::move(context));
        const qsizetype i = find();
        if (i < 0) co_return;
        QList<Line> lines = self->lines_;
        if (t.en.trimmed().isEmpty()) {
            lines.removeAt(i); // the model heard no speech
        } else {
            lines[i].en = t.en;
            lines[i].fr = t.fr;
            lines[i].done = true;
        }
        self->setLines(lines);
        co_return;
    } catch (const std::exception& e) {
        firstError = describe(e);
    }
    // The model failed: the preview's words, if any, still get a French text.
    qsizetype i = find();
    if (i >= 0 && !self->lines_[i].en.isEmpty()) {
        const QString en = self->lines_[i].en;
        try {
            const QString fr =
                co_await Translator::translate(en, QStringLiteral("français"), false);
            i = find();
            if (i >= 0) {
                QList<Line> lines = self->lines_;
                lines[i].fr = fr;
                lines[i].done = true;
                self->setLines(lines);
            }
        } catch (const std::exception&) {
        }
    }
    Log::write(QStringLiteral("appel: ") + *firstError);
}

} // namespace ombry
