#pragma once

#include <QString>

namespace ombry::Snapshot {

inline constexpr int kWidth = 1200;
inline constexpr int kHeight = 900;

// Pictures of the main window without a window: every page in the order of the sidebar, at
// 1200 × 900 and scale 1, light unless TALVO_THEME is "dark", as "{page}.png" in the folder.
// False with a French sentence when the folder or a file cannot be written.
bool render(const QString& folder, QString* error = nullptr);

} // namespace ombry::Snapshot
