#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <optional>

namespace ombry {

// The pages of the main window, in the order of the sidebar. Stored by their raw text.
enum class Page { Dashboard, Corrector, Translator, Meetings, History, Dictionary, Settings };

QList<Page> allPages();
QString rawValue(Page page); // "dashboard", …: also the name of its picture
QString label(Page page);    // "Tableau de bord", …
QString iconName(Page page); // the symbol of its sidebar row
std::optional<Page> pageFromRaw(const QString& raw);

// Which page the main window shows. The sidebar, the tray menu and the controller's call for
// attention set it; the window follows.
class Navigation : public QObject {
    Q_OBJECT
public:
    static Navigation& shared();
    explicit Navigation(QObject* parent = nullptr) : QObject(parent) {}

    Page page() const { return page_; }
    // Emits pageChanged on every write, like every observable field of the program.
    void setPage(Page page);

Q_SIGNALS:
    void pageChanged();

private:
    Page page_ = Page::Dashboard;
};

// Set only by --snapshot: pages draw what does not depend on the running program (no live
// banners, no pending network state).
bool snapshotMode();
void setSnapshotMode(bool on);

} // namespace ombry
