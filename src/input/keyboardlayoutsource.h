// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "input/xkblayout.h"

#include <QList>
#include <QObject>
#include <QString>

#include <memory>

/** The layouts the user switches between and which one is in use. */
struct ActiveKeyboardLayouts
{
    QList<XkbLayout> layouts;
    int current = 0;
    QString model;
    QString options;

    XkbLayout currentLayout() const
    {
        if (layouts.isEmpty())
            return XkbLayout { QStringLiteral("us"), {} };
        return layouts.value(qBound(0, current, int(layouts.size()) - 1));
    }

    friend bool operator==(const ActiveKeyboardLayouts&, const ActiveKeyboardLayouts&) = default;
};

class KeyboardLayoutSource : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;
    virtual ActiveKeyboardLayouts layouts() const = 0;
    virtual QString origin() const = 0;

signals:
    void changed();
};

std::unique_ptr<KeyboardLayoutSource> createKeyboardLayoutSource(bool waylandSession, QObject* parent = nullptr);
