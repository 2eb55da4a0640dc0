// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once
// A settings tab as text, one line per visible control in creation order: "# title (icon)" a section, "[x] text" a
// switch (" (off)" when disabled), "text = value" a slider row, "<choice>" a picker, "a | *b" a segmented control
// (current starred), "[placeholder|text]" a field, "(text)" a button, plain text a label.
#include "ui/segmentedcontrol.h"
#include "ui/settingsrows.h"
#include "ui/settingssection.h"

#include <QAbstractButton>
#include <QComboBox>
#include <QLineEdit>
#include <QStringList>

inline QStringList settingsDump(const QWidget* widget, const QWidget* top = nullptr)
{
    using namespace Qt::StringLiterals;
    const QWidget* root = top ? top : widget;
    QStringList lines;
    for (const QObject* object : widget->children()) {
        const auto* child = qobject_cast<const QWidget*>(object);
        if (!child || !child->isVisibleTo(root))
            continue;
        const QString off = child->isEnabled() ? QString() : u" (off)"_s;
        if (const auto* section = qobject_cast<const SettingsSection*>(child)) {
            lines << u"# %1 (%2)"_s.arg(section->title(), section->icon()) << settingsDump(section->content(), root);
        } else if (const auto* row = qobject_cast<const SwitchRow*>(child)) {
            lines << (row->isChecked() ? u"[x] "_s : u"[ ] "_s) + row->label()->text() + off;
            for (const QComboBox* accessory : row->findChildren<QComboBox*>())
                lines << u"  <%1>"_s.arg(accessory->currentText()) + (accessory->isEnabled() ? QString() : u" (off)"_s);
        } else if (const auto* slider = qobject_cast<const SliderRow*>(child)) {
            lines << slider->label()->text() + u" = "_s + slider->valueLabel()->text() + off;
        } else if (const auto* picker = qobject_cast<const QComboBox*>(child)) {
            lines << u"<%1>"_s.arg(picker->currentText()) + off;
        } else if (const auto* segments = qobject_cast<const SegmentedControl*>(child)) {
            QStringList texts;
            for (int i = 0; i < segments->count(); ++i)
                texts << (i == segments->currentIndex() ? u"*"_s : QString()) + segments->segment(i)->text();
            lines << texts.join(u" | "_s) + off;
        } else if (const auto* field = qobject_cast<const QLineEdit*>(child)) {
            lines << u"[%1|%2]"_s.arg(field->placeholderText(), field->text()) + off;
        } else if (const auto* button = qobject_cast<const QAbstractButton*>(child)) {
            if (!button->text().isEmpty() || !button->toolTip().isEmpty())
                lines << u"(%1)"_s.arg(button->text().isEmpty() ? button->toolTip() : button->text()) + off;
        } else if (const auto* label = qobject_cast<const QLabel*>(child)) {
            if (!label->text().isEmpty())
                lines << label->text() + off;
        } else {
            lines << settingsDump(child, root);
        }
    }
    return lines;
}
