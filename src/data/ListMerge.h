#pragma once

#include <QHash>
#include <QList>
#include <QUuid>
#include <algorithm>

namespace ombry {

// Three-way merge of a list file that another process wrote meanwhile: what this process
// removed from `base` (the list as it last had it on disk) is removed from `disk`, and what it
// added is put in, each added element after the one before it in `ours` (at the front when it
// is first). What others wrote stays. Elements are told apart by value, so all three lists
// must be read from their file form (a date to the second, as written). Linear in the three
// sizes: a history file may hold a hundred thousand records, merged under the folder's lock.
namespace merge {
// An element of one of the lists, compared on all fields. A record's id is enough to tell most
// apart: it is hashed alone, and kept beside the pointer so that a probe of the table that
// meets another record does not read that record.
template <class T> struct Key {
    static constexpr bool hasId = requires(const T& t) { t.id; };
    explicit Key(const T& v) : value(&v) {
        if constexpr (hasId) id = v.id;
    }
    const T* value;
    QUuid id;
    bool operator==(const Key& other) const { return id == other.id && *value == *other.value; }
};
template <class T> size_t qHash(const Key<T>& key, size_t seed = 0) {
    if constexpr (Key<T>::hasId)
        return ::qHash(key.id, seed);
    else
        return ::qHash(*key.value, seed);
}
} // namespace merge

template <class T>
QList<T> mergedAtFront(const QList<T>& ours, const QList<T>& base, const QList<T>& disk) {
    using Key = merge::Key<T>;
    // Per value of base: how many of its copies this process removed, and where the first
    // one that stays on disk stands among the kept elements.
    struct Entry {
        qsizetype removed = 0;
        qsizetype keptAt = -1;
    };
    QHash<Key, Entry> baseValues;
    baseValues.reserve(base.size());
    for (const T& v : base)
        ++baseValues[Key(v)].removed;
    // From here on the table only is searched, so its entries stay where they are.
    QList<Entry*> oursEntry(ours.size(), nullptr); // none: added by this process
    for (qsizetype i = 0; i < ours.size(); ++i) {
        const auto it = baseValues.find(Key(ours[i]));
        if (it == baseValues.end() || it->removed == 0) continue;
        --it->removed;
        oursEntry[i] = &*it;
    }
    QList<const T*> kept; // what stays of the disk's list
    kept.reserve(disk.size());
    for (const T& v : disk) {
        if (const auto it = baseValues.find(Key(v)); it != baseValues.end()) {
            if (it->removed > 0) {
                --it->removed;
                continue;
            }
            if (it->keptAt < 0) it->keptAt = kept.size();
        }
        kept.append(&v);
    }
    // after[0]: the added elements at the front; after[p + 1]: those right after kept[p].
    // An added element follows the element of ours before it: right after the kept one, or
    // after the added one put in just before.
    QList<QList<qsizetype>> after(kept.size() + 1);
    qsizetype slot = 0, cursor = 0, added = 0;
    for (qsizetype i = 0; i < ours.size(); ++i) {
        if (!oursEntry[i]) {
            after[slot].insert(cursor++, i);
            ++added;
        } else if (oursEntry[i]->keptAt >= 0) {
            slot = oursEntry[i]->keptAt + 1;
            cursor = 0;
        }
    }
    QList<T> result;
    result.reserve(kept.size() + added);
    for (qsizetype p = 0; p <= kept.size(); ++p) {
        if (p > 0) result.append(*kept[p - 1]);
        for (const qsizetype i : std::as_const(after[p]))
            result.append(ours[i]);
    }
    return result;
}

template <class T> QList<T> reversedList(QList<T> list) {
    std::reverse(list.begin(), list.end());
    return list;
}

// The merge of a list kept newest first (history, fixes) anchors new elements at the front;
// the others grow at their end, so an element added there is anchored on the one after it.
template <class T>
QList<T> mergedLists(const QList<T>& ours, const QList<T>& base, const QList<T>& disk,
                     bool newestFirst) {
    if (newestFirst) return mergedAtFront(ours, base, disk);
    return reversedList(mergedAtFront(reversedList(ours), reversedList(base), reversedList(disk)));
}

} // namespace ombry
