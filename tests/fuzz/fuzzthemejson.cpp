// SPDX-License-Identifier: GPL-3.0-or-later
// Theme documents and stored themes from arbitrary bytes: every decoder either rejects the input or gives values
// that survive encoding and decoding again.
#include "fuzzsupport.h"

#include "theme/themejson.h"

namespace {

void checkDocument(const QByteArray& input)
{
    std::optional<QList<NamedTheme>> themes = ThemeJson::decodeDocument(input);
    if (!themes)
        return;
    // An exported document imports as what was exported, at the document's precision, and exporting that again
    // gives the same text.
    const QByteArray encoded = ThemeJson::encodeDocument(*themes);
    const std::optional<QList<NamedTheme>> again = ThemeJson::decodeDocument(encoded);
    for (NamedTheme& theme : *themes)
        theme.config = theme.config.rounded(3);
    FUZZ_CHECK(again == themes);
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

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QByteArray input(reinterpret_cast<const char*>(data), qsizetype(size));
    checkDocument(input);
    checkStoredForms(input);
    return 0;
}
