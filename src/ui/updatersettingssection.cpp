// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/updatersettingssection.h"

#include "base/settingkeys.h"
#include "base/settingsstore.h"
#include "ui/settingsrows.h"

#include <QComboBox>
#include <QCoreApplication>
#include <QHBoxLayout>
#include <QPushButton>

using namespace Qt::StringLiterals;

UpdaterSettingsSection::UpdaterSettingsSection(SettingsStore& settings, UpdaterManager* updater, QWidget* parent)
    : SettingsSection(u"Updates"_s, u"arrow.triangle.2.circlepath"_s, 0, parent)
    , m_updater(updater)
    , m_version(new ToneLabel({}, ToneLabel::Tone::secondary))
    , m_check(new QPushButton(u"Check for Updates\u2026"_s))
    , m_automatic(new SwitchRow(u"Check for updates automatically"_s))
    , m_interval(new QComboBox)
{
    m_version->setText(versionText(updater ? updater->currentVersion() : QCoreApplication::applicationVersion()));
    m_version->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto* versionRow = new QWidget;
    auto* versionLayout = new QHBoxLayout(versionRow);
    versionLayout->setContentsMargins(0, 2, 0, 2);
    versionLayout->setSpacing(SettingsLayout::columnGap);
    versionLayout->addWidget(m_version, 1, Qt::AlignVCenter);
    versionLayout->addWidget(m_check, 0, Qt::AlignVCenter);
    addRow(versionRow);

    for (UpdateCheckInterval interval : UpdateCheckIntervals::all())
        m_interval->addItem(UpdateCheckIntervals::label(interval), QVariant::fromValue(qint64(interval)));
    m_interval->setAccessibleName(u"Automatic check interval"_s);
    m_interval->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    m_automatic->addAccessory(m_interval);
    m_automatic->setContentsMargins(0, 2, 0, 2);
    addRow(m_automatic);

    if (!updater) {
        m_check->hide();
        m_automatic->hide();
        auto* note = new ToneLabel(packageManagerText(), ToneLabel::Tone::secondary);
        note->setWordWrap(true);
        addRow(note);
    }

    connect(m_check, &QPushButton::clicked, this, [this] {
        if (m_updater)
            m_updater->checkForUpdates(true);
    });
    connect(m_automatic, &SwitchRow::toggled, this, [this](bool on) {
        if (m_updater)
            m_updater->setAutomaticallyChecksForUpdates(on);
        refresh();
    });
    connect(m_interval, &QComboBox::activated, this, [this](int index) {
        if (m_updater && index >= 0 && index < UpdateCheckIntervals::all().size())
            m_updater->setUpdateCheckInterval(UpdateCheckIntervals::all()[index]);
        refresh();
    });
    // The updater keeps both choices in the settings; any change there, from wherever, shows here.
    settings.bind(SettingKeys::automaticallyChecksForUpdates(), this, [this](bool) { refresh(); });
    settings.bind(SettingKeys::updateCheckInterval(), this, [this](double) { refresh(); });
    refresh();
}

UpdaterSettingsSection::~UpdaterSettingsSection() = default;

QString UpdaterSettingsSection::versionText(const QString& version)
{
    return u"Version "_s + (version.isEmpty() ? u"?"_s : version);
}

QString UpdaterSettingsSection::packageManagerText()
{
    return u"Updates come from your package manager."_s;
}

void UpdaterSettingsSection::refresh()
{
    const bool present = !m_updater.isNull();
    m_check->setEnabled(present);
    m_automatic->setEnabled(present);
    const bool automatic = present && m_updater->automaticallyChecksForUpdates();
    m_automatic->setChecked(automatic);
    const UpdateCheckInterval interval = present ? m_updater->updateCheckInterval() : UpdateCheckInterval::weekly;
    m_interval->setCurrentIndex(int(UpdateCheckIntervals::all().indexOf(interval)));
    m_interval->setEnabled(automatic);
}
