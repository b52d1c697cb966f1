#pragma once

#include <QWidget>

class QLabel;
class QPlainTextEdit;
class QPushButton;
class QTextBrowser;
class QVBoxLayout;
class QButtonGroup;

namespace ombry {

class CorrectorModel;
class Store;

// The corrector page: an editor with a live count of mistakes, the three modes (correct,
// rephrase, summarise), the corrected text with its changes to accept or refuse one by one,
// the quality score and the most frequent mistakes of the stored corrections.
class CorrectorPage : public QWidget {
    Q_OBJECT
public:
    explicit CorrectorPage(Store& store, QWidget* parent = nullptr);
    ~CorrectorPage() override;

    CorrectorModel& model() { return *model_; }

private:
    void refresh();
    void rebuildFixes();
    void rebuildMistakes();

    Store& store_;
    CorrectorModel* model_;
    QButtonGroup* modes_;
    QButtonGroup* tones_;
    QWidget* toneRow_;
    QPlainTextEdit* editor_;
    QLabel* words_;
    QLabel* live_;
    QPushButton* clear_;
    QPushButton* run_;
    QLabel* punctuation_;
    QLabel* error_;
    QWidget* resultCard_;
    QLabel* resultTitle_;
    QTextBrowser* result_;
    QLabel* count_;
    QPushButton* toggleAll_;
    QPushButton* copy_;
    QLabel* explaining_;
    QWidget* fixList_;
    QVBoxLayout* fixLayout_;
    QWidget* scoreCard_;
    QLabel* score_;
    QLabel* scoreNote_;
    QVBoxLayout* mistakesLayout_;
    QWidget* mistakesCard_;
    QString shownFixes_; // what the list of changes was built from
};

} // namespace ombry
