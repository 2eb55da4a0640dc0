// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QObject>

#include <memory>

/**
 * Says that the pointer moved, anywhere on the screen, without saying where: the hover tracking looks at the
 * pointer only then, instead of on a timer. The base class never reports anything; forX11() gives one that listens to
 * XInput2 raw motion. Nothing runs while the pointer rests.
 *
 * Main thread only.
 */
class PointerMotion : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(PointerMotion)

public:
    explicit PointerMotion(QObject* parent = nullptr)
        : QObject(parent)
    {
    }

    /**
     * One that reads raw motion on an X11 connection of its own, or nullptr when the application does not run on
     * X11 or the server has no XInput 2.
     */
    static std::unique_ptr<PointerMotion> forX11();

    /** Starts or stops reporting; false when motion cannot be reported (then the caller must look for itself). */
    virtual bool setWatching(bool watching)
    {
        Q_UNUSED(watching);
        return false;
    }

signals:
    /** The pointer moved since the last report: once per batch of motion, however many events it held. */
    void moved();
};
