// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "input/keyboardlayoutsource.h"
#include "keyboard/keyboardlayout.h"
#include "keyboard/keylabelsettings.h"

#include <QHash>
#include <QObject>
#include <QPointer>
#include <QSet>

#include <memory>

class KeyLegends;
class SettingsStore;

/**
 * Decides the board the keyboard is drawn as: its shape and the legends on its caps, from the "keyLabels" and
 * "keyboardShape" settings and the layout the user types with.
 *
 * The US layout keeps the legends printed on the picture. Keymaps are compiled once per layout and kept, and every
 * layout the user switches between is compiled as soon as it is known, so a switch is only a lookup. A layout
 * that cannot be compiled draws the printed legends and is reported once on standard error.
 */
class KeyLabelProvider final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(KeyLabelProvider)

public:
    /** `source` may be nullptr (the layout is US); both must outlive the provider. */
    KeyLabelProvider(SettingsStore& settings, KeyboardLayoutSource* source, QObject* parent = nullptr);
    ~KeyLabelProvider() override;

    std::shared_ptr<const KeyBoard> board() const { return m_board; }
    /** The layout whose legends are drawn (US for the printed ones). */
    XkbLayout shownLayout() const { return m_shown; }

    /**
     * The board for `labels` and `shape` when the user types with `active`: what the provider shows, as a pure
     * function, for pictures drawn without a running keyboard. `cache` may be nullptr.
     */
    static std::shared_ptr<const KeyBoard> boardFor(
        const KeyLabels& labels, KeyboardShape shape, const ActiveKeyboardLayouts& active, XkbLayout* shown = nullptr);

    /** Whether `layout` is drawn with the printed legends: the US layout itself. */
    static bool isPrintedLayout(const XkbLayout& layout);

signals:
    void boardChanged();

private:
    std::shared_ptr<const KeyLegends> legendsFor(const XkbLayout& layout, const QString& model, const QString& options);
    void update();

    template<typename Compile>
    static std::shared_ptr<const KeyBoard> resolve(const KeyLabels& labels, KeyboardShape shape,
        const ActiveKeyboardLayouts& active, XkbLayout* shown, Compile&& compile);

    SettingsStore& m_settings;
    QPointer<KeyboardLayoutSource> m_source;
    QHash<QString, std::shared_ptr<const KeyLegends>> m_compiled;
    QSet<QString> m_failed;
    std::shared_ptr<const KeyBoard> m_board;
    XkbLayout m_shown;
};
