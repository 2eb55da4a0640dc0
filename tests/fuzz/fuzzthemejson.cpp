// SPDX-License-Identifier: GPL-3.0-or-later
// Theme documents and stored themes from arbitrary bytes: every decoder either rejects the input or gives values
// that survive encoding and decoding again; importing a document the decoder rejects changes no setting.
#include "fuzzsupport.h"

#include "base/settingkeys.h"
#include "theme/themesettings.h"
#include "base/settingsstore.h"
#include "theme/themefileaccess.h"
#include "theme/themejson.h"
#include "theme/themelibrary.h"

#include <QSet>
#include <QTemporaryDir>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

// Hands the fuzz input to the library as the file the user picked; nothing is ever written.
class InputFileAccess final : public ThemeFileAccess
{
public:
    std::optional<QString> chooseFileToOpen() override { return u"input.json"_s; }
    std::optional<QString> chooseFileToSave(const QString&) override { return std::nullopt; }
    std::optional<QByteArray> readFile(const QString&) override { return input; }
    bool writeFile(const QString&, const QByteArray&) override { return false; }
    void setClipboardText(const QString&) override { }

    QByteArray input;
};

struct Library
{
    QTemporaryDir dir;
    SettingsStore settings { dir.filePath(u"settings.json"_s) };
    InputFileAccess files;
    ThemeLibraryEditor editor { settings, files };
    QList<NamedTheme> baseline = settings.value(SettingKeys::savedThemes());
};

Library& library()
{
    static Library* instance = [] {
        FuzzSupport::ensureApplication();
        return new Library; // Lives for the whole run.
    }();
    return *instance;
}

QList<NamedTheme> roundedThemes(QList<NamedTheme> themes)
{
    for (NamedTheme& theme : themes)
        theme.config = theme.config.rounded(3);
    return themes;
}

void checkDocument(const QByteArray& input)
{
    const std::optional<QList<NamedTheme>> themes = ThemeJson::decodeDocument(input);
    if (!themes)
        return;
    // An exported document imports as what was exported, at the document's precision, and exporting that again
    // gives the same text.
    const QByteArray encoded = ThemeJson::encodeDocument(*themes);
    const std::optional<QList<NamedTheme>> again = ThemeJson::decodeDocument(encoded);
    FUZZ_CHECK(again.has_value());
    FUZZ_CHECK(*again == roundedThemes(*themes));
    FUZZ_CHECK(ThemeJson::encodeDocument(*again) == encoded);
}

void checkStoredForms(const QByteArray& input)
{
    // The settings-store forms keep full precision, so they must give back exactly what they were given.
    if (const std::optional<ThemeConfig> config = ThemeJson::decodeConfig(input))
        FUZZ_CHECK(ThemeJson::decodeConfig(ThemeJson::encodeConfig(*config)) == config);
    if (const std::optional<NamedTheme> theme = ThemeJson::decodeNamedTheme(input))
        FUZZ_CHECK(ThemeJson::decodeNamedTheme(ThemeJson::encodeNamedTheme(*theme)) == theme);
}

void checkImport(const QByteArray& input)
{
    Library& lib = library();
    SettingsStore& settings = lib.settings;
    const QList<NamedTheme> savedBefore = settings.value(SettingKeys::savedThemes());
    const ThemeConfig activeBefore = settings.value(SettingKeys::activeThemeConfig());
    const QString nameBefore = settings.value(SettingKeys::activeThemeName());

    lib.files.input = input;
    lib.editor.importThemes();

    const QList<NamedTheme> savedAfter = settings.value(SettingKeys::savedThemes());
    const std::optional<QList<NamedTheme>> decoded = ThemeJson::decodeDocument(input);
    if (!decoded || decoded->isEmpty()) {
        // All or nothing: a document that does not decode leaves every setting as it was.
        FUZZ_CHECK(savedAfter == savedBefore);
        FUZZ_CHECK(settings.value(SettingKeys::activeThemeConfig()) == activeBefore);
        FUZZ_CHECK(settings.value(SettingKeys::activeThemeName()) == nameBefore);
        return;
    }
    FUZZ_CHECK(savedAfter.size() == savedBefore.size() + decoded->size());
    FUZZ_CHECK(savedAfter.mid(0, savedBefore.size()) == savedBefore);
    QSet<QString> names;
    QSet<QUuid> ids;
    for (const NamedTheme& theme : savedAfter) {
        names.insert(theme.name);
        ids.insert(theme.id);
    }
    FUZZ_CHECK(names.size() == savedAfter.size());
    FUZZ_CHECK(ids.size() == savedAfter.size());
    // The stored list reads back as written.
    for (qsizetype i = 0; i < decoded->size(); ++i)
        FUZZ_CHECK(savedAfter[savedBefore.size() + i].config == (*decoded)[i].config);

    // Back to the built-in list now and then, so that the library stays small.
    if (savedAfter.size() > 64)
        settings.setValue(SettingKeys::savedThemes(), lib.baseline);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QByteArray input(reinterpret_cast<const char*>(data), qsizetype(size));
    checkDocument(input);
    checkStoredForms(input);
    checkImport(input);
    return 0;
}
