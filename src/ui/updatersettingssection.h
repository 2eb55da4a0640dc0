// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "ui/updatermanager.h"
#include "ui/settingssection.h"

#include <QPointer>

class QComboBox;
class QPushButton;
class SettingsStore;
class SwitchRow;
class ToneLabel;

/**
 * The "Updates" section: the running version with a button that checks for updates now, and the switch for
 * automatic checks with their interval, which can only be picked while automatic checks are on.
 *
 * The controls read and write the updater directly and follow its settings in `settings` when they change
 * elsewhere. Without an updater (a build without an update feed) the version shows with packageManagerText()
 * instead of the button, and the automatic-check controls are hidden.
 */
class UpdaterSettingsSection final : public SettingsSection
{
    Q_OBJECT

public:
    /** `settings` must outlive the section; `updater` may be nullptr. */
    UpdaterSettingsSection(SettingsStore& settings, UpdaterManager* updater, QWidget* parent = nullptr);
    ~UpdaterSettingsSection() override;

    ToneLabel* versionLabel() const { return m_version; }
    QPushButton* checkButton() const { return m_check; }
    SwitchRow* automaticRow() const { return m_automatic; }
    QComboBox* intervalPicker() const { return m_interval; }

    /** "Version " and the version, "?" standing in for an unknown one. */
    static QString versionText(const QString& version);
    /** What the section says in a build without an update feed. */
    static QString packageManagerText();

private:
    /** Shows what the updater holds now. */
    void refresh();

    QPointer<UpdaterManager> m_updater;
    ToneLabel* m_version;
    QPushButton* m_check;
    SwitchRow* m_automatic;
    QComboBox* m_interval;
};
