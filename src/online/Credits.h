#pragma once

#include <QCoroTask>
#include <QJsonObject>
#include <QObject>
#include <QString>
#include <optional>

namespace ombry {

// The balance of hosted credits and the link between this computer and an account on the
// product site, as last heard from the site. Nothing is stored: it all comes back with the
// first refresh() of each run. Fields change on the main thread only, and each write emits
// its change signal.
class Credits : public QObject {
    Q_OBJECT
public:
    static Credits& shared();

    // Credits left; nothing until the site first answers.
    std::optional<int> balance() const { return balance_; }
    // The balance has run out: set with every balance, to balance < 1.
    bool exhausted() const { return exhausted_; }
    // The e-mail of the linked account; nothing while this computer is not linked.
    std::optional<QString> linkedEmail() const { return linkedEmail_; }
    // A link attempt is under way.
    bool linking() const { return linking_; }

    // A balance heard from the hosted service. Applied later on the main thread: with a value,
    // sets balance and exhausted and calls warnIfLow; without one, changes nothing.
    void update(std::optional<int> credits);

    // From 9 credits down, a notification at most once a day (lowCreditsNotifiedAt).
    void warnIfLow(int credits);

    // Asks the site for balance and link. A failure leaves every field as it was.
    QCoro::Task<void> refresh();

    // Links this computer to an account: asks the site for a page, opens it in the browser and
    // polls the link state every 3 seconds, 100 times at most, until an e-mail shows up.
    QCoro::Task<void> link();

    // POSTs body + identity to the site's `path` (10 s); the answer's object when the status is
    // 200 and the body is a JSON object, else nothing. Never throws.
    static QCoro::Task<std::optional<QJsonObject>> post(QString path, QJsonObject body);

    static constexpr int kLinkPolls = 100;
    static constexpr int kLinkPollMs = 3000;

Q_SIGNALS:
    void balanceChanged();
    void exhaustedChanged();
    void linkedEmailChanged();
    void linkingChanged();

private:
    explicit Credits(QObject* parent = nullptr);
    void setBalance(int credits);
    void setLinkedEmail(std::optional<QString> email);
    void setLinking(bool linking);
    // The answer of api/link/status: balance (without warning) and e-mail.
    void applyStatus(const QJsonObject& answer);

    std::optional<int> balance_;
    bool exhausted_ = false;
    std::optional<QString> linkedEmail_;
    bool linking_ = false;
};

} // namespace ombry
