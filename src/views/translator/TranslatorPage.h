#pragma once

#include <QTimer>
#include <QWidget>

class QButtonGroup;
class QComboBox;
class QLabel;
class QPlainTextEdit;
class QPushButton;
class QStackedWidget;
class QTextBrowser;
class QVBoxLayout;

namespace ombry {

class CallTranslator;
class Store;
class TranslatorModel;

// The subtitles of a call, as the call translator publishes them: start and stop, what is
// being listened to, and the whole conversation in English and French.
class CallSubtitlesTab : public QWidget {
    Q_OBJECT
public:
    explicit CallSubtitlesTab(CallTranslator& call, QWidget* parent = nullptr);

protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void refresh();
    // The applications that play sound now, offered as what to listen to.
    void refreshApps();

    CallTranslator& call_;
    QLabel* head_;
    QLabel* source_;
    QPushButton* toggle_;
    QPushButton* floating_;
    QLabel* error_;
    QTextBrowser* conversation_;
    QComboBox* apps_;
    QLabel* locked_;
    QTimer appsTimer_; // every 3 s while the tab is shown
};

// The translation page: the text translator (translation as the user types, the languages,
// swap, copy, reading aloud, the last copied translations) and the tab of call subtitles.
// The tab shown is kept in the user defaults.
class TranslatorPage : public QWidget {
    Q_OBJECT
public:
    explicit TranslatorPage(Store& store, CallTranslator& call, QWidget* parent = nullptr);
    ~TranslatorPage() override;

    TranslatorModel& model() { return *model_; }

private:
    void refresh();
    void rebuildRecent();
    void showTab(int tab);

    Store& store_;
    TranslatorModel* model_;
    QButtonGroup* tabs_;
    QStackedWidget* stack_;
    QComboBox* target_;
    QPlainTextEdit* source_;
    QPlainTextEdit* result_;
    QLabel* detected_;
    QLabel* characters_;
    QLabel* status_;
    QLabel* error_;
    QPushButton* swap_;
    QPushButton* copy_;
    QPushButton* speakSource_;
    QPushButton* speakResult_;
    QWidget* recentCard_;
    QVBoxLayout* recentLayout_;
};

} // namespace ombry
