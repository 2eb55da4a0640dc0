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
 * elsewhere. Without an updater (none could be made) the version still shows and the controls are disabled.
 */
class UpdaterSettingsSection final : public SettingsSection
{
    Q_OBJECT

public:
    /** `settings` must outlive the section. The default updater is the shared one, made now if it is not yet. */
    explicit UpdaterSettingsSection(
        SettingsStore& settings, UpdaterManager* updater = UpdaterManager::shared(), QWidget* parent = nullptr);
    ~UpdaterSettingsSection() override;

    ToneLabel* versionLabel() const { return m_version; }
    QPushButton* checkButton() const { return m_check; }
    SwitchRow* automaticRow() const { return m_automatic; }
    QComboBox* intervalPicker() const { return m_interval; }

    /** "Version " and the version, "?" standing in for an unknown one. */
    static QString versionText(const QString& version);

private:
    /** Shows what the updater holds now. */
    void refresh();

    QPointer<UpdaterManager> m_updater;
    ToneLabel* m_version;
    QPushButton* m_check;
    SwitchRow* m_automatic;
    QComboBox* m_interval;
};
