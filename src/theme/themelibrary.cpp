// SPDX-License-Identifier: GPL-3.0-or-later
#include "theme/themelibrary.h"

#include "base/settingkeys.h"
#include "theme/themesettings.h"
#include "base/settingsstore.h"
#include "theme/themefileaccess.h"
#include "theme/themejson.h"

#include <QCoreApplication>
#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QSet>
#include <QStringDecoder>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace {

// JSON has no text for NaN or infinity; a document holding one cannot be written faithfully.
bool holdsOnlyFiniteNumbers(const QJsonValue& value)
{
    if (value.isDouble())
        return std::isfinite(value.toDouble());
    if (value.isObject()) {
        const QJsonObject object = value.toObject();
        return std::all_of(
            object.begin(), object.end(), [](const QJsonValue& member) { return holdsOnlyFiniteNumbers(member); });
    }
    if (value.isArray()) {
        const QJsonArray array = value.toArray();
        return std::all_of(
            array.begin(), array.end(), [](const QJsonValue& element) { return holdsOnlyFiniteNumbers(element); });
    }
    return true;
}

std::optional<QByteArray> encodeDocument(const QList<NamedTheme>& themes)
{
    for (const NamedTheme& theme : themes) {
        if (!holdsOnlyFiniteNumbers(ThemeJson::toJson(theme.config)))
            return std::nullopt;
    }
    return ThemeJson::encodeDocument(themes);
}

// Gives each name the first free suffix, always on the name as given (Dark, Dark 2, Dark 3, never Dark 2 2), in
// constant time per name. An imported document may hold thousands of themes of one name; looking each suffix up in
// the whole list again takes time cubic in their number, minutes for a file of a few hundred kilobytes.
class UniqueNames
{
public:
    explicit UniqueNames(const QList<NamedTheme>& saved)
    {
        for (const NamedTheme& theme : saved)
            m_taken.insert(theme.name);
    }

    QString take(const QString& name)
    {
        QString candidate = name;
        if (m_taken.contains(candidate)) {
            // Names are only ever added, so the suffixes tried for this name before are still taken.
            qsizetype& n = m_nextSuffix[name];
            n = std::max<qsizetype>(n, 2);
            do {
                candidate = name + u' ' + QString::number(n++);
            } while (m_taken.contains(candidate));
        }
        m_taken.insert(candidate);
        return candidate;
    }

private:
    QSet<QString> m_taken;
    QHash<QString, qsizetype> m_nextSuffix;
};

const NamedTheme* findById(const QList<NamedTheme>& themes, const QUuid& id)
{
    const auto it = std::find_if(themes.begin(), themes.end(), [&](const NamedTheme& theme) { return theme.id == id; });
    return it == themes.end() ? nullptr : &*it;
}

NamedTheme* findById(QList<NamedTheme>& themes, const QUuid& id)
{
    const auto it = std::find_if(themes.begin(), themes.end(), [&](const NamedTheme& theme) { return theme.id == id; });
    return it == themes.end() ? nullptr : &*it;
}

NamedTheme* findByName(QList<NamedTheme>& themes, const QString& name)
{
    const auto it
        = std::find_if(themes.begin(), themes.end(), [&](const NamedTheme& theme) { return theme.name == name; });
    return it == themes.end() ? nullptr : &*it;
}

bool isThemeNameBlank(QChar c)
{
    return c == u' ' || c == u'\t';
}

} // namespace

namespace ThemeLibrary {

QString currentUnsavedText()
{
    return QCoreApplication::translate("ThemeLibrary", "Current (unsaved)");
}

QUuid unsavedMarkerID()
{
    return QUuid();
}

bool isCurrentConfigUnsaved(const ThemeConfig& active, const QList<NamedTheme>& saved)
{
    return std::none_of(saved.begin(), saved.end(), [&](const NamedTheme& theme) { return theme.config == active; });
}

bool isCurrentConfigUnsaved(const SettingsStore& settings)
{
    return isCurrentConfigUnsaved(
        settings.value(SettingKeys::activeThemeConfig()), settings.value(SettingKeys::savedThemes()));
}

void chooseThemeFromMenu(SettingsStore& settings, const NamedTheme& theme)
{
    settings.setValue(SettingKeys::activeThemeConfig(), theme.config);
    settings.setValue(SettingKeys::activeThemeName(), theme.name);
}

QString trimmedThemeName(const QString& name)
{
    qsizetype begin = 0;
    qsizetype end = name.size();
    while (begin < end && isThemeNameBlank(name.at(begin)))
        ++begin;
    while (end > begin && isThemeNameBlank(name.at(end - 1)))
        --end;
    return name.mid(begin, end - begin);
}

std::optional<QByteArray> exportActiveTheme(const SettingsStore& settings)
{
    QList<NamedTheme> saved = settings.value(SettingKeys::savedThemes());
    const QString activeName = settings.value(SettingKeys::activeThemeName());
    if (const NamedTheme* entry = findByName(saved, activeName))
        return encodeDocument({ *entry });
    return encodeDocument(
        { NamedTheme { QUuid::createUuid(), activeName, settings.value(SettingKeys::activeThemeConfig()) } });
}

std::optional<QByteArray> exportAllThemes(const SettingsStore& settings)
{
    return encodeDocument(settings.value(SettingKeys::savedThemes()));
}

} // namespace ThemeLibrary

ThemeLibraryEditor::ThemeLibraryEditor(SettingsStore& settings, ThemeFileAccess& files, QObject* parent)
    : QObject(parent)
    , m_settings(settings)
    , m_files(files)
{
    // The store announces a key only when its value really changed, so writing an equal configuration is silent.
    connect(&m_settings, &SettingsStore::valueChanged, this, &ThemeLibraryEditor::onSettingChanged);
}

ThemeLibraryEditor::~ThemeLibraryEditor() = default;

void ThemeLibraryEditor::setNewThemeName(const QString& name)
{
    if (name == m_newThemeName)
        return;
    m_newThemeName = name;
    emit newThemeNameChanged(m_newThemeName);
}

void ThemeLibraryEditor::setSelectedThemeID(const std::optional<QUuid>& id)
{
    if (id == m_selectedThemeID)
        return;
    m_selectedThemeID = id;
    emit selectedThemeIDChanged(m_selectedThemeID);
    selectTheme(m_selectedThemeID);
}

void ThemeLibraryEditor::setEditingThemeID(const std::optional<QUuid>& id)
{
    if (id == m_editingThemeID)
        return;
    m_editingThemeID = id;
    emit editingThemeIDChanged(m_editingThemeID);
}

void ThemeLibraryEditor::setBaseThemeID(const std::optional<QUuid>& id)
{
    if (id == m_baseThemeID)
        return;
    m_baseThemeID = id;
    emit baseThemeIDChanged(m_baseThemeID);
}

bool ThemeLibraryEditor::isCurrentConfigUnsaved() const
{
    return ThemeLibrary::isCurrentConfigUnsaved(m_settings);
}

bool ThemeLibraryEditor::canDeleteThemes() const
{
    return m_settings.value(SettingKeys::savedThemes()).size() >= 2;
}

bool ThemeLibraryEditor::canSaveAsTheme() const
{
    return !ThemeLibrary::trimmedThemeName(m_newThemeName).isEmpty();
}

void ThemeLibraryEditor::selectTheme(const std::optional<QUuid>& id)
{
    if (!id || *id == ThemeLibrary::unsavedMarkerID())
        return;
    const QList<NamedTheme> saved = m_settings.value(SettingKeys::savedThemes());
    const NamedTheme* entry = findById(saved, *id);
    if (!entry)
        return;
    const NamedTheme chosen = *entry;

    // The store announces the change while setValue() runs, so the flag covers exactly this one write. Clearing it
    // afterwards matters when the entry's configuration is already the active one: then nothing is announced, and a
    // flag left standing would swallow the user's next edit.
    m_suppressConfigChange = true;
    m_settings.setValue(SettingKeys::activeThemeConfig(), chosen.config);
    m_suppressConfigChange = false;
    m_settings.setValue(SettingKeys::activeThemeName(), chosen.name);
    setBaseThemeID(chosen.id);
}

void ThemeLibraryEditor::configChanged()
{
    if (m_suppressConfigChange) {
        m_suppressConfigChange = false;
        return;
    }
    if (isCurrentConfigUnsaved())
        setSelectedThemeID(ThemeLibrary::unsavedMarkerID()); // baseThemeID keeps the entry the edits started from
    else
        setBaseThemeID(std::nullopt);
}

void ThemeLibraryEditor::saveAsTheme()
{
    const QString name = ThemeLibrary::trimmedThemeName(m_newThemeName);
    if (name.isEmpty())
        return;
    QList<NamedTheme> saved = m_settings.value(SettingKeys::savedThemes());
    const ThemeConfig active = m_settings.value(SettingKeys::activeThemeConfig());
    QUuid id;
    if (NamedTheme* existing = findByName(saved, name)) {
        existing->config = active;
        id = existing->id;
    } else {
        id = QUuid::createUuid();
        saved.append(NamedTheme { id, name, active });
    }
    m_settings.setValue(SettingKeys::savedThemes(), saved);
    setSelectedThemeID(id);
    m_settings.setValue(SettingKeys::activeThemeName(), name);
    setNewThemeName(QString());
}

void ThemeLibraryEditor::replaceWithCurrentConfig(const QUuid& id)
{
    QList<NamedTheme> saved = m_settings.value(SettingKeys::savedThemes());
    NamedTheme* entry = findById(saved, id);
    if (!entry)
        return;
    entry->config = m_settings.value(SettingKeys::activeThemeConfig());
    const QString name = entry->name;
    m_settings.setValue(SettingKeys::savedThemes(), saved);
    m_settings.setValue(SettingKeys::activeThemeName(), name);
    setSelectedThemeID(id);
    setBaseThemeID(std::nullopt);
}

void ThemeLibraryEditor::beginRename(const QUuid& id)
{
    setEditingThemeID(id);
}

void ThemeLibraryEditor::renameTheme(const QUuid& id, const QString& newName)
{
    QList<NamedTheme> saved = m_settings.value(SettingKeys::savedThemes());
    NamedTheme* entry = findById(saved, id);
    if (!entry)
        return;
    const QString oldName = entry->name;
    entry->name = newName;
    m_settings.setValue(SettingKeys::savedThemes(), saved);
    if (m_settings.value(SettingKeys::activeThemeName()) == oldName)
        m_settings.setValue(SettingKeys::activeThemeName(), newName);
}

void ThemeLibraryEditor::endRename()
{
    setEditingThemeID(std::nullopt);
}

void ThemeLibraryEditor::deleteTheme(const QUuid& id)
{
    QList<NamedTheme> saved = m_settings.value(SettingKeys::savedThemes());
    // The window never offers to delete the last entry; refuse it here as well so the list cannot run empty.
    if (saved.size() < 2)
        return;
    const NamedTheme* entry = findById(saved, id);
    if (!entry)
        return;
    const QString removedName = entry->name;
    saved.removeIf([&](const NamedTheme& theme) { return theme.id == id; });
    m_settings.setValue(SettingKeys::savedThemes(), saved);

    if (m_settings.value(SettingKeys::activeThemeName()) != removedName || saved.isEmpty())
        return;
    const NamedTheme first = saved.first();
    m_settings.setValue(SettingKeys::activeThemeConfig(), first.config);
    m_settings.setValue(SettingKeys::activeThemeName(), first.name);
    setSelectedThemeID(first.id);
}

void ThemeLibraryEditor::importThemes()
{
    const std::optional<QString> path = m_files.chooseFileToOpen();
    if (!path)
        return;
    const std::optional<QByteArray> bytes = m_files.readFile(*path);
    if (!bytes)
        return;
    const std::optional<QList<NamedTheme>> imported = ThemeJson::decodeDocument(*bytes);
    if (!imported || imported->isEmpty())
        return;

    QList<NamedTheme> saved = m_settings.value(SettingKeys::savedThemes());
    UniqueNames names(saved);
    for (const NamedTheme& theme : *imported) {
        // Ids in the document are discarded, so importing an earlier export never replaces an entry.
        saved.append(NamedTheme { QUuid::createUuid(), names.take(theme.name), theme.config });
    }
    m_settings.setValue(SettingKeys::savedThemes(), saved);

    // Normally the copy of the first imported theme; a later one with an equal configuration wins.
    const ThemeConfig& first = imported->first().config;
    const auto match
        = std::find_if(saved.crbegin(), saved.crend(), [&](const NamedTheme& theme) { return theme.config == first; });
    if (match == saved.crend())
        return;
    const NamedTheme chosen = *match;
    m_settings.setValue(SettingKeys::activeThemeConfig(), chosen.config);
    m_settings.setValue(SettingKeys::activeThemeName(), chosen.name);
    setSelectedThemeID(chosen.id);
}

void ThemeLibraryEditor::copyActiveThemeToClipboard()
{
    copyToClipboard(ThemeLibrary::exportActiveTheme(m_settings));
}

void ThemeLibraryEditor::copyAllThemesToClipboard()
{
    copyToClipboard(ThemeLibrary::exportAllThemes(m_settings));
}

void ThemeLibraryEditor::saveActiveThemeToFile()
{
    saveToFile(
        ThemeLibrary::exportActiveTheme(m_settings), m_settings.value(SettingKeys::activeThemeName()) + u".json"_s);
}

void ThemeLibraryEditor::saveAllThemesToFile()
{
    saveToFile(ThemeLibrary::exportAllThemes(m_settings), u"Ordalis Themes.json"_s);
}

void ThemeLibraryEditor::copyToClipboard(const std::optional<QByteArray>& document)
{
    if (!document)
        return;
    QStringDecoder decoder(QStringDecoder::Utf8);
    const QString text = decoder(*document);
    if (decoder.hasError())
        return;
    m_files.setClipboardText(text);
}

void ThemeLibraryEditor::saveToFile(const std::optional<QByteArray>& document, const QString& proposedFileName)
{
    if (!document)
        return;
    const std::optional<QString> path = m_files.chooseFileToSave(proposedFileName);
    if (!path)
        return;
    // A failed write leaves nothing to undo; the user can simply try again.
    m_files.writeFile(*path, *document);
}

void ThemeLibraryEditor::onSettingChanged(const QString& name)
{
    const bool configChange = name == SettingKeys::activeThemeConfig().name();
    if (configChange)
        configChanged();
    if (configChange || name == SettingKeys::savedThemes().name() || name == SettingKeys::activeThemeName().name())
        emit libraryChanged();
}
