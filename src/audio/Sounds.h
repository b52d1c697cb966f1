#pragma once

#include <QByteArray>

// The program's three short sounds, made in code: Tink when a recording begins, Pop when it
// ends, Basso on an error. Played through the platform's audio output without waiting; the
// caller decides whether sounds are wanted (AppSettings::sounds).
namespace ombry {

enum class Sound { Tink, Pop, Basso };

// Sample rate of the sounds' PCM.
constexpr int kSoundRate = 48000;

// The PCM (S16LE mono at kSoundRate) of a sound; the same bytes every time.
QByteArray soundPcm(Sound sound);

// Plays the sound through Platform::current().audio(); returns at once.
void playSound(Sound sound);

} // namespace ombry
