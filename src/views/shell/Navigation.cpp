#include "views/shell/Navigation.h"

namespace ombry {

namespace {
struct PageInfo {
    Page page;
    const char* raw;
    const char* label;
    const char* icon;
};
const PageInfo kPages[] = {
    {Page::Dashboard, "dashboard", "Tableau de bord", "square.grid.2x2"},
    {Page::Corrector, "corrector", "Correcteur", "checkmark.seal"},
    {Page::Translator, "translator", "Traduction", "globe"},
    {Page::Meetings, "meetings", "Réunions", "person.2.wave.2"},
    {Page::History, "history", "Historique", "clock"},
    {Page::Dictionary, "dictionary", "Dictionnaire", "book.closed"},
    {Page::Settings, "settings", "Réglages", "gearshape"},
};
const PageInfo& info(Page page) {
    return kPages[int(page)];
}
bool snapshot = false;
} // namespace

QList<Page> allPages() {
    QList<Page> out;
    for (const PageInfo& p : kPages)
        out << p.page;
    return out;
}

QString rawValue(Page page) {
    return QString::fromLatin1(info(page).raw);
}
QString label(Page page) {
    return QString::fromUtf8(info(page).label);
}
QString iconName(Page page) {
    return QString::fromLatin1(info(page).icon);
}

std::optional<Page> pageFromRaw(const QString& raw) {
    for (const PageInfo& p : kPages)
        if (raw == QLatin1String(p.raw)) return p.page;
    return std::nullopt;
}

Navigation& Navigation::shared() {
    static auto* instance = new Navigation;
    return *instance;
}

void Navigation::setPage(Page page) {
    page_ = page;
    Q_EMIT pageChanged();
}

bool snapshotMode() {
    return snapshot;
}
void setSnapshotMode(bool on) {
    snapshot = on;
}

} // namespace ombry
