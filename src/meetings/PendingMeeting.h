#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>
#include <QUuid>
#include <cstdint>
#include <optional>

namespace ombry {

// A meeting between its first second and its filing: what lets a quit, a crash or a failure
// lose nothing. Its audio grows in "{id}.pcm" and this state in "{id}.json", both in the
// folder of pending meetings inside the data folder, until the meeting is stored.
struct PendingMeeting {
    // A recording is transcribed in pieces of 3 minutes (5,760,000 bytes of PCM), one after
    // the other, while it goes on.
    static constexpr int64_t kChunkBytes = 5760000;

    struct Part {
        QString text;
        bool failed = false;
        bool operator==(const Part&) const = default;
    };

    QUuid id;
    QDateTime startedAt;
    bool recording = true; // the recording was still going on at the last write
    bool again = false;    // a stored meeting transcribed again from its kept audio
    int64_t bytes = 0;     // PCM bytes of the recording once it has ended
    QList<int64_t> cuts;   // end offset of each piece, in order
    QList<Part> parts;     // the pieces transcribed so far, in order

    // Adds the cuts of the full pieces that `size` bytes of recording hold beyond the last
    // cut; with `final`, also the shorter last piece. Returns whether a cut was added.
    bool cutUpTo(int64_t size, bool final);
    // The number of pieces of a recording of `size` bytes: rounded up, at least 1.
    static int pieceCount(int64_t size);
    int64_t pieceStart(int i) const { return i == 0 ? 0 : cuts[i - 1]; }
    // The parts' texts that are not empty, joined by a blank line.
    QString transcript() const;
    bool anyFailed() const;

    QByteArray toJson() const;
    static std::optional<PendingMeeting> fromJson(const QByteArray& data);
    // A meeting known by its audio alone (its state was lost): the id is the file's name when
    // that is one, and it began `bytes` of audio before the file's last change.
    static PendingMeeting fromAudio(const QString& stem, int64_t bytes, const QDateTime& modified);

    // The two files of a pending meeting, as named in the folder; either may be missing.
    struct Files {
        QString stem; // the name without its suffix
        QString json;
        QString pcm;
    };
    // The pending meetings of a folder, oldest first, whatever the case of their names.
    static QList<Files> find(const QString& folder);
    bool operator==(const PendingMeeting&) const = default;
};

} // namespace ombry
