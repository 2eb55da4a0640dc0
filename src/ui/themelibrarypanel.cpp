// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/themelibrarypanel.h"

#include "theme/themelibrary.h"
#include "ui/settingsrows.h"
#include "ui/settingsstyle.h"
#include "ui/themelistview.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QMenu>
#include <QPainter>
#include <QScrollBar>
#include <QStyleOptionToolButton>
#include <QStylePainter>
#include <QToolButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

constexpr double fieldTextPixels = 12;
constexpr double saveIconPoints = 16;
constexpr double toolbarIconPoints = 12;
constexpr double toolbarTextPixels = 11;
constexpr double sidebarRadius = 8;

/** A borderless menu button whose label says what it does; it draws no arrow of its own. */
class MenuToolButton final : public QToolButton
{
public:
    using QToolButton::QToolButton;

protected:
    void paintEvent(QPaintEvent*) override
    {
        QStylePainter painter(this);
        QStyleOptionToolButton option;
        initStyleOption(&option);
        option.features &= ~QStyleOptionToolButton::HasMenu;
        painter.drawComplexControl(QStyle::CC_ToolButton, option);
    }
};

/** A slim scroll bar without arrows over a transparent groove, so the list's rounded background shows through. */
QString slimScrollBar(const QPalette& palette)
{
    QColor handle = SettingsStyle::primaryText(palette);
    handle.setAlphaF(0.3f);
    return uR"(QScrollBar:vertical { background: transparent; width: 10px; margin: 4px 3px 4px 0; }
QScrollBar::handle:vertical { background: %1; border-radius: 3px; min-height: 24px; }
QScrollBar::add-line:vertical, QScrollBar::sub-line:vertical { height: 0; border: none; background: none; }
QScrollBar::add-page:vertical, QScrollBar::sub-page:vertical { background: none; })"_s.arg(
        handle.name(QColor::HexArgb));
}

} // namespace

ThemeLibraryPanel::ThemeLibraryPanel(ThemeLibraryEditor& editor, SettingsStore& settings, QWidget* parent)
    : QWidget(parent)
    , m_editor(editor)
    , m_list(new ThemeListView(editor, settings))
    , m_name(new QLineEdit)
    , m_save(new QToolButton)
    , m_share(new MenuToolButton)
    , m_shareMenu(new QMenu(m_share))
    , m_import(new QToolButton)
{
    m_name->setObjectName(u"newThemeName"_s);
    m_name->setPlaceholderText(u"Save as theme..."_s);
    m_name->setAccessibleName(u"Save as theme"_s);
    m_name->setFont(SettingsStyle::font(this, fieldTextPixels));
    m_name->setClearButtonEnabled(false);

    m_save->setObjectName(u"saveAsTheme"_s);
    m_save->setAutoRaise(true);
    m_save->setToolTip(u"Save the current config as a theme"_s);
    m_save->setAccessibleName(u"Save as theme"_s);
    m_save->setIconSize(QSize(20, 20));

    m_shareMenu->setObjectName(u"shareMenu"_s);
    const auto addShare = [this](const QString& text, const QString& name, void (ThemeLibraryEditor::*run)()) {
        QAction* action = m_shareMenu->addAction(text, this, [this, run] { (m_editor.*run)(); });
        action->setObjectName(name);
    };
    addShare(u"Copy to Clipboard"_s, u"copyToClipboard"_s, &ThemeLibraryEditor::copyActiveThemeToClipboard);
    addShare(u"Save as JSON File\u2026"_s, u"saveAsJSONFile"_s, &ThemeLibraryEditor::saveActiveThemeToFile);
    m_shareMenu->addSeparator();
    addShare(u"Copy All to Clipboard"_s, u"copyAllToClipboard"_s, &ThemeLibraryEditor::copyAllThemesToClipboard);
    addShare(u"Save All as JSON File\u2026"_s, u"saveAllAsJSONFile"_s, &ThemeLibraryEditor::saveAllThemesToFile);

    m_share->setObjectName(u"share"_s);
    m_share->setText(u"Share"_s);
    m_share->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    m_share->setPopupMode(QToolButton::InstantPopup);
    m_share->setMenu(m_shareMenu);
    m_share->setAutoRaise(true);
    m_share->setFont(SettingsStyle::font(this, toolbarTextPixels));
    m_share->setIconSize(QSize(14, 14));

    m_import->setObjectName(u"importThemes"_s);
    m_import->setToolTip(u"Import themes from JSON"_s);
    m_import->setAccessibleName(u"Import themes from JSON"_s);
    m_import->setAutoRaise(true);
    m_import->setIconSize(QSize(14, 14));

    auto* saveRow = new QHBoxLayout;
    saveRow->setContentsMargins(0, 0, 0, 0);
    saveRow->setSpacing(4);
    saveRow->addWidget(m_name, 1);
    saveRow->addWidget(m_save);

    auto* toolbar = new QHBoxLayout;
    toolbar->setContentsMargins(0, 0, 0, 0);
    toolbar->setSpacing(2);
    toolbar->addWidget(m_share);
    toolbar->addWidget(m_import);
    toolbar->addStretch(1);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(6);
    layout->addWidget(m_list);
    layout->addLayout(saveRow);
    layout->addLayout(toolbar);

    connect(m_name, &QLineEdit::textEdited, &m_editor, &ThemeLibraryEditor::setNewThemeName);
    connect(&m_editor, &ThemeLibraryEditor::newThemeNameChanged, this, &ThemeLibraryPanel::showName);
    connect(m_save, &QToolButton::clicked, &m_editor, &ThemeLibraryEditor::saveAsTheme);
    connect(m_import, &QToolButton::clicked, &m_editor, &ThemeLibraryEditor::importThemes);

    showName();
    restyle();
}

ThemeLibraryPanel::~ThemeLibraryPanel() = default;

void ThemeLibraryPanel::showName()
{
    const QString name = m_editor.newThemeName();
    if (m_name->text() != name)
        m_name->setText(name);
    m_save->setEnabled(m_editor.canSaveAsTheme());
}

void ThemeLibraryPanel::changeEvent(QEvent* event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        restyle();
}

void ThemeLibraryPanel::restyle()
{
    const QPalette& own = palette();
    m_save->setIcon(QIcon(SettingsStyle::symbol(
        this, u"plus.circle.fill"_s, saveIconPoints, SymbolWeight::regular, SettingsStyle::accent(own))));

    // The toolbar's controls are quiet: icon and text in the secondary colour.
    const QColor secondary = SettingsStyle::secondaryText(own);
    m_share->setIcon(QIcon(
        SettingsStyle::symbol(this, u"square.and.arrow.up"_s, toolbarIconPoints, SymbolWeight::regular, secondary)));
    m_import->setIcon(QIcon(
        SettingsStyle::symbol(this, u"square.and.arrow.down"_s, toolbarIconPoints, SymbolWeight::regular, secondary)));
    QPalette quiet = m_share->palette();
    quiet.setColor(QPalette::ButtonText, secondary);
    m_share->setPalette(quiet);
    m_list->verticalScrollBar()->setStyleSheet(slimScrollBar(own));
    update();
}

void ThemeLibraryPanel::paintEvent(QPaintEvent*)
{
    // The sidebar's background lies under the whole list, scroll bar included.
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    const QPalette& own = palette();
    painter.setBrush(SettingsStyle::isDark(own) ? QColor::fromRgbF(1, 1, 1, 0.05f) : QColor::fromRgbF(0, 0, 0, 0.045f));
    painter.drawRoundedRect(QRectF(m_list->geometry()), sidebarRadius, sidebarRadius);
}
