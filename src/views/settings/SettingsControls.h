#pragma once

#include "data/Settings.h"
#include "views/common/Components.h"
#include "views/common/Switch.h"
#include "views/settings/SettingsModel.h"

#include <QCheckBox>
#include <QComboBox>
#include <QVBoxLayout>

// The controls every tab of the settings page is made of.
namespace ombry::settings_controls {

using namespace Components;
namespace SM = SettingsModel;

// A switch named for the tests, set to `on`.
inline QCheckBox* toggle(const char* name, bool on) {
    auto* c = new Switch;
    c->setObjectName(QLatin1String(name));
    c->setChecked(on);
    return c;
}

// A switch bound to a setting, as a row of the card: each click writes the setting at once.
inline QCheckBox* addSwitch(QVBoxLayout* card, const char* name, AppSettings& settings,
                            bool (AppSettings::*get)() const, void (AppSettings::*set)(bool),
                            const QString& title, const QString& detail) {
    QCheckBox* c = toggle(name, (settings.*get)());
    QObject::connect(c, &QCheckBox::toggled, &settings, set);
    card->addWidget(row(title, detail, c));
    return c;
}

// A list of every value of the setting's type, showing `current`, each named by labelOf.
template <class E, class LabelOf>
QComboBox* picker(const char* name, E current, const LabelOf& labelOf) {
    auto* box = new Picker;
    box->setObjectName(QLatin1String(name));
    for (E v : allCases<E>())
        box->addItem(labelOf(v), rawValue(v));
    box->setCurrentIndex(int(allCases<E>().indexOf(current)));
    return box;
}

// The same with the values' own labels.
template <class E> QComboBox* picker(const char* name, E current) {
    return picker(name, current, [](E v) { return label(v); });
}

// A card at the end of the tab's column, under its section title; gives the card's layout.
inline QVBoxLayout* addCard(QVBoxLayout* column, const QString& title) {
    QVBoxLayout* layout = nullptr;
    column->addWidget(card(&layout));
    layout->addWidget(sectionTitle(title));
    return layout;
}

// A list bound to a setting, as a row of the card: each choice writes the setting at once.
template <class E>
QComboBox* addPicker(QVBoxLayout* card, const char* name, AppSettings& settings,
                     E (AppSettings::*get)() const, void (AppSettings::*set)(E),
                     const QString& title, const QString& detail) {
    QComboBox* box = picker<E>(name, (settings.*get)());
    QObject::connect(box, &QComboBox::activated, &settings,
                     [&settings, set](int i) { (settings.*set)(allCases<E>().at(i)); });
    card->addWidget(row(title, detail, box));
    return box;
}

// The column of cards of one tab.
inline QVBoxLayout* column(QWidget* w) {
    auto* v = new QVBoxLayout(w);
    v->setContentsMargins(0, 0, 0, 0);
    v->setSpacing(14);
    return v;
}

} // namespace ombry::settings_controls
