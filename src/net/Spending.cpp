#include "net/Spending.h"

#include "data/Store.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>

namespace ombry::Spending {

double costOf(const QByteArray& reply) {
    const QJsonDocument doc = QJsonDocument::fromJson(reply);
    if (!doc.isObject()) return 0.0;
    const QJsonValue usage = doc.object().value(QLatin1String("usage"));
    if (!usage.isObject()) return 0.0;
    const QJsonValue cost = usage.toObject().value(QLatin1String("cost"));
    if (!cost.isDouble()) return 0.0;
    return cost.toDouble() > 0.0 ? cost.toDouble() : 0.0;
}

void record(const QByteArray& reply) {
    const double cost = costOf(reply);
    if (!(cost > 0.0)) return;
    QCoreApplication* app = QCoreApplication::instance();
    if (!app) return;
    QMetaObject::invokeMethod(
        app, [cost] { Store::shared().addCost(cost); }, Qt::QueuedConnection);
}

} // namespace ombry::Spending
