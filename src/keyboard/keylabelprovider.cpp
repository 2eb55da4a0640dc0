// SPDX-License-Identifier: GPL-3.0-or-later
#include "keyboard/keylabelprovider.h"

#include "base/settingsstore.h"
#include "keyboard/keylegends.h"

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

QString cacheKey(const XkbLayout& layout, const QString& model, const QString& options)
{
    return layout.toString() + u'|' + model + u'|' + options;
}

bool sameBoard(const KeyBoard& a, const KeyBoard& b)
{
    return a.iso == b.iso && a.rows == b.rows;
}

} // namespace

KeyLabelProvider::KeyLabelProvider(SettingsStore& settings, KeyboardLayoutSource* source, QObject* parent)
    : QObject(parent)
    , m_settings(settings)
    , m_source(source)
    , m_board(KeyBoard::printed())
    , m_shown(XkbLayout { u"us"_s, {} })
{
    settings.bind(SettingKeys::keyLabels(), this, [this](const KeyLabels&) { update(); });
    settings.bind(SettingKeys::keyboardShape(), this, [this](KeyboardShape) { update(); });
    if (source)
        connect(source, &KeyboardLayoutSource::changed, this, &KeyLabelProvider::update);
    update();
}

KeyLabelProvider::~KeyLabelProvider() = default;

bool KeyLabelProvider::isPrintedLayout(const XkbLayout& layout)
{
    return layout.layout == u"us"_s && (layout.variant.isEmpty() || layout.variant == u"basic"_s);
}

template<typename Compile>
std::shared_ptr<const KeyBoard> KeyLabelProvider::resolve(const KeyLabels& labels, KeyboardShape shape,
    const ActiveKeyboardLayouts& active, XkbLayout* shown, Compile&& compile)
{
    XkbLayout layout { u"us"_s, {} };
    std::shared_ptr<const KeyLegends> legends;
    if (labels.mode != KeyLabels::Mode::printed) {
        layout = labels.mode == KeyLabels::Mode::fixedLayout ? labels.layout : active.currentLayout();
        if (!isPrintedLayout(layout))
            legends = compile(layout, active.model, active.options);
        if (!legends)
            layout = XkbLayout { u"us"_s, {} };
    }
    if (shown)
        *shown = layout;

    bool iso = shape == KeyboardShape::iso;
    if (shape == KeyboardShape::automatic) {
        // The 105-key model binds the key left of Z for every layout, US ones included, yet US keyboards have none.
        iso = legends && legends->bindsKeyLeftOfZ() && layout.layout != u"us"_s;
    }
    if (!legends && !iso)
        return KeyBoard::printed();
    return KeyBoard::make(iso, legends.get());
}

std::shared_ptr<const KeyBoard> KeyLabelProvider::boardFor(
    const KeyLabels& labels, KeyboardShape shape, const ActiveKeyboardLayouts& active, XkbLayout* shown)
{
    return resolve(labels, shape, active, shown, [](const XkbLayout& layout, const QString& model, const QString& options) {
        return KeyLegends::compile(layout, model, options);
    });
}

std::shared_ptr<const KeyLegends> KeyLabelProvider::legendsFor(
    const XkbLayout& layout, const QString& model, const QString& options)
{
    const QString key = cacheKey(layout, model, options);
    if (const auto it = m_compiled.constFind(key); it != m_compiled.cend())
        return *it;
    if (m_failed.contains(key))
        return nullptr;
    std::shared_ptr<const KeyLegends> legends = KeyLegends::compile(layout, model, options);
    if (!legends) {
        m_failed.insert(key);
        std::fprintf(stderr, "ordalis: the keyboard layout \"%s\" could not be read; the keys show US labels\n",
            qPrintable(layout.toString()));
        return nullptr;
    }
    m_compiled.insert(key, legends);
    return legends;
}

void KeyLabelProvider::update()
{
    const ActiveKeyboardLayouts active = m_source ? m_source->layouts() : ActiveKeyboardLayouts {};
    const KeyLabels labels = m_settings.value(SettingKeys::keyLabels());
    // Every layout the user may switch to is made ready now, so that the switch itself costs no compiling.
    if (labels.mode == KeyLabels::Mode::followLayout) {
        for (const XkbLayout& layout : active.layouts) {
            if (!isPrintedLayout(layout))
                legendsFor(layout, active.model, active.options);
        }
    }
    XkbLayout shown;
    std::shared_ptr<const KeyBoard> board = resolve(labels, m_settings.value(SettingKeys::keyboardShape()), active,
        &shown, [this](const XkbLayout& layout, const QString& model, const QString& options) {
            return legendsFor(layout, model, options);
        });
    m_shown = shown;
    if (sameBoard(*board, *m_board))
        return;
    m_board = std::move(board);
    emit boardChanged();
}
