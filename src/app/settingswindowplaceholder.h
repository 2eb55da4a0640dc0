// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QWidget>

/**
 * The settings window until the real one exists: an ordinary titled window "Ordalis Settings" with a short note.
 * Unlike the keyboard panel it is a normal window, so it has a task-bar entry while it is open.
 */
class SettingsWindowPlaceholder final : public QWidget
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(SettingsWindowPlaceholder)

public:
    explicit SettingsWindowPlaceholder(QWidget* parent = nullptr);
    ~SettingsWindowPlaceholder() override;

    /** Shows the window (restored if minimised), raises it and gives it the focus. */
    void bringToFront();
};
