#include "engines/AudioFile.h"

#include "platform/Paths.h"

#include <QBuffer>
#include <QFile>
#include <QtEndian>

#include <sndfile.h>
#include <soxr.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>

namespace ombry::AudioFile {
namespace {

constexpr int kTargetRate = 16000;
constexpr sf_count_t kBlockFrames = 8192;

// The device libsndfile reads through, with some bytes of the header replaced: the size fields
// of a WAV whose writer never came back to fill them in.
struct Source {
    QIODevice* device = nullptr;
    qint64 size = 0;
    std::vector<std::pair<qint64, quint32>> patches; // offset of a 32-bit field, its value
};

sf_count_t sourceLength(void* user) {
    return static_cast<Source*>(user)->size;
}

sf_count_t sourceSeek(sf_count_t offset, int whence, void* user) {
    auto* s = static_cast<Source*>(user);
    qint64 to = offset;
    if (whence == SEEK_CUR)
        to += s->device->pos();
    else if (whence == SEEK_END)
        to += s->size;
    if (to < 0 || to > s->size || !s->device->seek(to)) return -1;
    return to;
}

sf_count_t sourceRead(void* ptr, sf_count_t count, void* user) {
    auto* s = static_cast<Source*>(user);
    const qint64 at = s->device->pos();
    const qint64 got = s->device->read(static_cast<char*>(ptr), count);
    if (got <= 0) return 0;
    for (const auto& [offset, value] : s->patches) {
        uchar field[4];
        qToLittleEndian<quint32>(value, field);
        for (qint64 i = 0; i < 4; ++i)
            if (offset + i >= at && offset + i < at + got)
                static_cast<uchar*>(ptr)[offset + i - at] = field[i];
    }
    return got;
}

sf_count_t sourceWrite(const void*, sf_count_t, void*) {
    return 0;
}

sf_count_t sourceTell(void* user) {
    return static_cast<Source*>(user)->device->pos();
}

std::optional<quint32> readU32(QIODevice& d, qint64 at) {
    uchar b[4];
    if (!d.seek(at) || d.read(reinterpret_cast<char*>(b), 4) != 4) return std::nullopt;
    return qFromLittleEndian<quint32>(b);
}

// A WAV written by a recorder that stopped before closing it says 0 (or 0xFFFFFFFF, the
// streaming value) for its sizes; libsndfile then reads no frame. Such sizes are replaced by
// what the file holds.
void patchUnsizedWav(Source& s) {
    QIODevice& d = *s.device;
    if (!d.seek(0) || d.read(4) != "RIFF" || !d.seek(8) || d.read(4) != "WAVE") return;
    const auto unsized = [](quint32 v) { return v == 0 || v == 0xFFFFFFFFu; };
    const auto clamp32 = [](qint64 v) { return quint32(std::clamp<qint64>(v, 0, 0xFFFFFFFEll)); };
    if (const auto riff = readU32(d, 4); riff && unsized(*riff))
        s.patches.push_back({4, clamp32(s.size - 8)});
    qint64 at = 12;
    for (int chunks = 0; chunks < 64 && at + 8 <= s.size; ++chunks) {
        if (!d.seek(at)) return;
        const QByteArray id = d.read(4);
        const auto size = readU32(d, at + 4);
        if (id.size() != 4 || !size) return;
        if (id == "data") {
            if (unsized(*size)) s.patches.push_back({at + 4, clamp32((s.size - at - 8) & ~1ll)});
            return;
        }
        at += 8 + qint64(*size) + (*size & 1);
    }
}

struct SndFileCloser {
    void operator()(SNDFILE* f) const { sf_close(f); }
};
struct SoxrDeleter {
    void operator()(soxr* r) const { soxr_delete(r); }
};

void appendSamples(QByteArray& out, const float* samples, size_t count) {
    const qsizetype at = out.size();
    out.resize(at + qsizetype(count) * 2);
    auto* p = reinterpret_cast<uchar*>(out.data() + at);
    for (size_t i = 0; i < count; ++i) {
        const float v = std::isfinite(samples[i]) ? std::clamp(samples[i], -1.0f, 1.0f) : 0.0f;
        qToLittleEndian<qint16>(qint16(std::lround(v * 32767.0f)), p + 2 * i);
    }
}

std::unique_ptr<soxr, SoxrDeleter> makeResampler(int from, int to) {
    soxr_error_t error = nullptr;
    const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
    soxr* r = soxr_create(double(from), double(to), 1, &error, &io, &quality, nullptr);
    if (error) return nullptr;
    return std::unique_ptr<soxr, SoxrDeleter>(r);
}

std::optional<QByteArray> decode(QIODevice& device, QString* error) {
    const auto fail = [&](const QString& why) -> std::optional<QByteArray> {
        if (error) *error = why;
        return std::nullopt;
    };
    Source source{&device, device.size(), {}};
    patchUnsizedWav(source);
    if (!device.seek(0)) return fail(QStringLiteral("fichier audio illisible"));
    SF_VIRTUAL_IO io{sourceLength, sourceSeek, sourceRead, sourceWrite, sourceTell};
    SF_INFO info{};
    const std::unique_ptr<SNDFILE, SndFileCloser> file(
        sf_open_virtual(&io, SFM_READ, &info, &source));
    if (!file)
        return fail(QStringLiteral("format audio non reconnu (WAV, FLAC, Ogg, Opus ou MP3 "
                                   "attendu)"));
    if (info.channels < 1 || info.samplerate < 1000 || info.samplerate > 768000)
        return fail(QStringLiteral("format audio non pris en charge"));
    // Integers come as floats in [-1, 1]; floats are read as they are (clipped later).
    sf_command(file.get(), SFC_SET_NORM_FLOAT, nullptr, SF_TRUE);

    std::unique_ptr<soxr, SoxrDeleter> resampler;
    if (info.samplerate != kTargetRate) {
        resampler = makeResampler(info.samplerate, kTargetRate);
        if (!resampler) return fail(QStringLiteral("conversion de l'audio impossible"));
    }
    const double ratio = double(kTargetRate) / info.samplerate;
    std::vector<float> frames(size_t(kBlockFrames) * size_t(info.channels));
    std::vector<float> mono(static_cast<size_t>(kBlockFrames));
    std::vector<float> converted(size_t(std::ceil(kBlockFrames * ratio)) + 64);
    QByteArray pcm;
    if (info.frames > 0 && info.frames < (sf_count_t(1) << 40))
        pcm.reserve(qsizetype(double(info.frames) * ratio * 2) + 64);
    const auto push = [&](const float* in, size_t count) {
        if (!resampler) {
            appendSamples(pcm, in, count);
            return;
        }
        // A null input tells the resampler that the signal has ended: it gives what it holds.
        do {
            size_t used = 0, made = 0;
            soxr_process(resampler.get(), in, count, &used, converted.data(), converted.size(),
                         &made);
            appendSamples(pcm, converted.data(), made);
            if (in) {
                in += used;
                count -= used;
            }
            if (!in && made == 0) break;
        } while (!in || count > 0);
    };
    sf_count_t read = 0;
    while ((read = sf_readf_float(file.get(), frames.data(), kBlockFrames)) > 0) {
        for (sf_count_t i = 0; i < read; ++i) {
            float sum = 0;
            for (int c = 0; c < info.channels; ++c)
                sum += frames[size_t(i) * size_t(info.channels) + size_t(c)];
            mono[size_t(i)] = sum / float(info.channels);
        }
        push(mono.data(), size_t(read));
    }
    // A decoder that stops on a broken frame says so: the user hears of it rather than getting
    // the transcript of a part of the file.
    if (sf_error(file.get()) != SF_ERR_NO_ERROR)
        return fail(QStringLiteral("fichier audio endommagé"));
    if (resampler) push(nullptr, 0);
    if (pcm.isEmpty()) return fail(QStringLiteral("aucun son dans le fichier"));
    return pcm;
}

} // namespace

std::optional<QByteArray> speechPcm(const QString& path, QString* error) {
    // The name as the system has it, bytes that are not UTF-8 included; never a pipe or a
    // device, which could block or never end.
    const int fd = ::open(Paths::toNative(path).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    struct stat info {};
    if (fd < 0 || ::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        if (error)
            *error = fd < 0 ? QString::fromLocal8Bit(std::strerror(errno))
                            : QStringLiteral("pas un fichier ordinaire");
        if (fd >= 0) ::close(fd);
        return std::nullopt;
    }
    QFile file;
    if (!file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        ::close(fd);
        if (error) *error = file.errorString();
        return std::nullopt;
    }
    return decode(file, error);
}

std::optional<QByteArray> speechPcm(const QByteArray& bytes, QString* error) {
    QByteArray copy = bytes; // shared, not copied: QBuffer wants a non-const array
    QBuffer buffer(&copy);
    buffer.open(QIODevice::ReadOnly);
    return decode(buffer, error);
}

std::vector<float> resample(const std::vector<float>& mono, int from, int to) {
    if (from == to || mono.empty()) return mono;
    const auto resampler = makeResampler(from, to);
    if (!resampler) return {};
    std::vector<float> out(size_t(std::ceil(double(mono.size()) * to / from)) + 64);
    size_t used = 0, made = 0, total = 0;
    soxr_process(resampler.get(), mono.data(), mono.size(), &used, out.data(), out.size(), &made);
    total = made;
    soxr_process(resampler.get(), nullptr, 0, nullptr, out.data() + total, out.size() - total,
                 &made);
    total += made;
    out.resize(total);
    return out;
}

} // namespace ombry::AudioFile
