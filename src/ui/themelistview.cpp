// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/themelistview.h"

#include "base/settingkeys.h"
#include "theme/themesettings.h"
#include "base/settingsstore.h"
#include "theme/hsbcolor.h"
#include "theme/themelibrary.h"
#include "ui/settingsstyle.h"

#include <QApplication>
#include <QContextMenuEvent>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMenu>
#include <QPainter>
#include <QPointer>
#include <QScopedValueRollback>
#include <QScrollBar>
#include <QStyledItemDelegate>
#include <QToolButton>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr double swatchSide = 14;
constexpr double swatchRadius = 3;
/** Space between the list's edge and a row's highlight, and inside the highlight before the swatch. */
constexpr int highlightInset = 3;
constexpr int swatchLeft = highlightInset + 7;
constexpr int swatchTextGap = 8;
constexpr int textRight = highlightInset + 6;
constexpr double highlightRadius = 5;
constexpr double replaceIconPoints = 11;
constexpr int replaceButtonSide = 20;
constexpr int listPadding = 3;

/** Where a row's name starts, after its swatch. */
int textLeft()
{
    return swatchLeft + int(swatchSide) + swatchTextGap;
}

} // namespace

// ThemeListModel

ThemeListModel::ThemeListModel(SettingsStore& settings, QObject* parent)
    : QAbstractListModel(parent)
    , m_settings(settings)
{
    refresh();
}

ThemeListModel::~ThemeListModel() = default;

QColor ThemeListModel::keycapColour(const ThemeConfig& config)
{
    return HsbColor { config.keycapHue, config.keycapSaturation, config.keycapBrightness, 1.0 }.toQColor();
}

void ThemeListModel::refresh()
{
    const QList<NamedTheme> saved = m_settings.value(SettingKeys::savedThemes());
    const ThemeConfig active = m_settings.value(SettingKeys::activeThemeConfig());
    QList<Row> rows;
    rows.reserve(saved.size() + 1);
    for (const NamedTheme& theme : saved)
        rows.append(Row { theme.id, theme.name, keycapColour(theme.config), false });
    if (ThemeLibrary::isCurrentConfigUnsaved(active, saved))
        rows.append(
            Row { ThemeLibrary::unsavedMarkerID(), ThemeLibrary::currentUnsavedText(), keycapColour(active), true });

    // Rows keep their identity where the ids line up from either end; only the stretch in between is replaced.
    // That covers every change the window makes (one row added, removed or renamed, the unsaved row coming and
    // going), so an open rename field and the selection survive them.
    const qsizetype oldCount = m_rows.size();
    const qsizetype newCount = rows.size();
    qsizetype head = 0;
    while (head < oldCount && head < newCount && m_rows[head].id == rows[head].id)
        ++head;
    qsizetype tail = 0;
    while (tail < oldCount - head && tail < newCount - head
        && m_rows[oldCount - 1 - tail].id == rows[newCount - 1 - tail].id)
        ++tail;

    if (head + tail < oldCount) {
        beginRemoveRows({}, int(head), int(oldCount - tail - 1));
        m_rows.remove(head, oldCount - tail - head);
        endRemoveRows();
    }
    if (head + tail < newCount) {
        beginInsertRows({}, int(head), int(newCount - tail - 1));
        m_rows.insert(head, newCount - tail - head, Row {});
        for (qsizetype i = head; i < newCount - tail; ++i)
            m_rows[i] = rows[i];
        endInsertRows();
    }
    for (qsizetype i = 0; i < newCount; ++i) {
        if (m_rows[i] == rows[i])
            continue;
        m_rows[i] = rows[i];
        const QModelIndex changed = index(int(i));
        emit dataChanged(changed, changed);
    }
}

QModelIndex ThemeListModel::indexOf(const QUuid& id) const
{
    const auto it = std::find_if(m_rows.cbegin(), m_rows.cend(), [&](const Row& row) { return row.id == id; });
    return it == m_rows.cend() ? QModelIndex() : index(int(it - m_rows.cbegin()));
}

std::optional<QUuid> ThemeListModel::idAt(const QModelIndex& index) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid))
        return std::nullopt;
    return m_rows[index.row()].id;
}

int ThemeListModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(m_rows.size());
}

QVariant ThemeListModel::data(const QModelIndex& index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid))
        return {};
    const Row& row = m_rows[index.row()];
    switch (role) {
    case Qt::DisplayRole:
    case Qt::EditRole:
    case Qt::ToolTipRole:
        return row.name;
    case Qt::DecorationRole:
    case SwatchColourRole:
        return row.swatch;
    case IdRole:
        return row.id;
    case UnsavedRole:
        return row.unsaved;
    default:
        return {};
    }
}

Qt::ItemFlags ThemeListModel::flags(const QModelIndex& index) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid))
        return Qt::NoItemFlags;
    Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemNeverHasChildren;
    if (!m_rows[index.row()].unsaved)
        flags |= Qt::ItemIsEditable;
    return flags;
}

// The rows' look and their rename field.

class ThemeListView::Delegate final : public QStyledItemDelegate
{
public:
    Delegate(ThemeListView* view, ThemeLibraryEditor& editor)
        : QStyledItemDelegate(view)
        , m_view(view)
        , m_editor(editor)
    {
    }

    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex&) const override
    {
        return { option.rect.width(), m_view->rowHeight() };
    }

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override
    {
        const QPalette& palette = m_view->palette();
        const QRectF row = option.rect;
        const bool selected = option.state.testFlag(QStyle::State_Selected);
        const bool emphasised = selected && m_view->showsFocusedSelection();
        const bool unsaved = index.data(ThemeListModel::UnsavedRole).toBool();

        painter->save();
        painter->setRenderHint(QPainter::Antialiasing);
        if (selected) {
            QColor fill = emphasised ? SettingsStyle::accent(palette) : SettingsStyle::primaryText(palette);
            if (!emphasised)
                fill.setAlphaF(0.12f);
            painter->setPen(Qt::NoPen);
            painter->setBrush(fill);
            painter->drawRoundedRect(
                row.adjusted(highlightInset, 1, -highlightInset, -1), highlightRadius, highlightRadius);
        }

        const QRectF swatch(row.left() + swatchLeft, row.center().y() - swatchSide / 2, swatchSide, swatchSide);
        painter->setBrush(index.data(ThemeListModel::SwatchColourRole).value<QColor>());
        painter->setPen(QPen(SettingsStyle::whiteLine(0.2), 0.5));
        painter->drawRoundedRect(swatch.adjusted(0.25, 0.25, -0.25, -0.25), swatchRadius, swatchRadius);

        // The rename field covers the name while it is open.
        if (!m_view->isPersistentEditorOpen(index)) {
            QFont font = option.font;
            font.setItalic(unsaved);
            QColor colour = SettingsStyle::primaryText(palette);
            if (emphasised)
                colour = palette.color(QPalette::HighlightedText);
            else if (unsaved)
                colour = SettingsStyle::secondaryText(palette);
            painter->setFont(font);
            painter->setPen(colour);
            const QRectF text = textRect(row.toRect(), index);
            const QString name = QFontMetrics(font).elidedText(
                index.data(Qt::DisplayRole).toString(), Qt::ElideRight, int(text.width()));
            painter->drawText(text, Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine, name);
        }
        painter->restore();
    }

    QWidget* createEditor(QWidget* parent, const QStyleOptionViewItem& option, const QModelIndex& index) const override
    {
        const std::optional<QUuid> id = m_view->themeModel()->idAt(index);
        if (!id)
            return nullptr;
        auto* field = new QLineEdit(parent);
        field->setObjectName(u"renameField"_s);
        field->setPlaceholderText(u"Name"_s);
        field->setAccessibleName(u"Name"_s);
        field->setFont(option.font);
        field->setProperty(originalNameProperty, index.data(Qt::EditRole));
        ThemeLibraryEditor* editor = &m_editor;
        QObject::connect(field, &QLineEdit::textEdited, field,
            [editor, id = *id](const QString& name) { editor->renameTheme(id, name); });
        QObject::connect(field, &QLineEdit::returnPressed, field, [editor] { editor->endRename(); });
        return field;
    }

    void setEditorData(QWidget* editor, const QModelIndex& index) const override
    {
        // Each keystroke renames and comes back here; text equal to the stored name is left alone with its cursor.
        auto* field = qobject_cast<QLineEdit*>(editor);
        const QString name = index.data(Qt::EditRole).toString();
        if (field && field->text() != name)
            field->setText(name);
    }

    void setModelData(QWidget*, QAbstractItemModel*, const QModelIndex&) const override
    {
        // Every edit has already renamed the theme through the library.
    }

    void updateEditorGeometry(
        QWidget* editor, const QStyleOptionViewItem& option, const QModelIndex& index) const override
    {
        const QRect text = textRect(option.rect, index);
        const int height = std::min(option.rect.height() - 2, editor->sizeHint().height());
        editor->setGeometry(text.left() - 4, option.rect.center().y() - height / 2 + 1, text.width() + 6, height);
    }

protected:
    bool eventFilter(QObject* object, QEvent* event) override
    {
        // The field keeps its own keys: Return ends the rename through returnPressed, Escape restores the name the
        // theme had when the rename began, and leaving the field ends it as it is. The base class would instead
        // commit and close the editor by itself.
        auto* field = qobject_cast<QLineEdit*>(object);
        if (!field)
            return false;
        if (event->type() == QEvent::KeyPress && static_cast<QKeyEvent*>(event)->key() == Qt::Key_Escape) {
            const std::optional<QUuid> id = m_editor.editingThemeID();
            const QString original = field->property(originalNameProperty).toString();
            if (id && field->text() != original)
                m_editor.renameTheme(*id, original);
            m_editor.endRename();
            return true;
        }
        if (event->type() == QEvent::FocusOut) {
            const Qt::FocusReason reason = static_cast<QFocusEvent*>(event)->reason();
            // A context menu or another window taking the focus for a moment leaves the field open.
            if (reason != Qt::PopupFocusReason && reason != Qt::ActiveWindowFocusReason) {
                const std::optional<QUuid> id = m_editor.editingThemeID();
                // Later, so the field is not closed while it handles its own focus change.
                QMetaObject::invokeMethod(
                    m_view,
                    [editor = &m_editor, id, field = QPointer<QLineEdit>(field)] {
                        if (field && id && editor->editingThemeID() == id)
                            editor->endRename();
                    },
                    Qt::QueuedConnection);
            }
        }
        return false;
    }

private:
    static constexpr const char* originalNameProperty = "originalName";

    QRect textRect(const QRect& row, const QModelIndex& index) const
    {
        int right = row.right() - textRight;
        const std::optional<QUuid> id = m_view->themeModel()->idAt(index);
        if (id && m_view->replaceButton()->isVisibleTo(m_view) && m_editor.baseThemeID() == id)
            right -= replaceButtonSide + 2;
        return QRect(QPoint(row.left() + textLeft(), row.top()), QPoint(right, row.bottom()));
    }

    ThemeListView* m_view;
    ThemeLibraryEditor& m_editor;
};

// ThemeListView

ThemeListView::ThemeListView(ThemeLibraryEditor& editor, SettingsStore& settings, QWidget* parent)
    : QListView(parent)
    , m_editor(editor)
    , m_model(new ThemeListModel(settings, this))
    , m_delegate(new Delegate(this, editor))
    , m_replace(new QToolButton(viewport()))
{
    setObjectName(u"themeList"_s);
    setAccessibleName(u"Themes"_s);
    setModel(m_model);
    setItemDelegate(m_delegate);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setUniformItemSizes(true);
    setFrameShape(QFrame::NoFrame);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    viewport()->setAutoFillBackground(false);
    setAutoFillBackground(false);
    // Keeps the first and last highlight clear of the rounded corners of the background.
    setViewportMargins(0, listPadding, 0, listPadding);

    m_replace->setObjectName(u"replaceWithCurrentConfig"_s);
    m_replace->setToolTip(u"Replace with current config"_s);
    m_replace->setAccessibleName(u"Replace with current config"_s);
    m_replace->setAutoRaise(true);
    m_replace->setFocusPolicy(Qt::NoFocus);
    m_replace->setCursor(Qt::ArrowCursor);
    m_replace->setFixedSize(replaceButtonSide, replaceButtonSide);
    m_replace->setIconSize(QSize(replaceButtonSide - 4, replaceButtonSide - 4));
    m_replace->hide();
    connect(m_replace, &QToolButton::clicked, this, [this] {
        if (const std::optional<QUuid> base = m_editor.baseThemeID())
            m_editor.replaceWithCurrentConfig(*base);
    });

    connect(&m_editor, &ThemeLibraryEditor::libraryChanged, this, &ThemeListView::followLibrary);
    connect(&m_editor, &ThemeLibraryEditor::selectedThemeIDChanged, this, &ThemeListView::showSelection);
    connect(&m_editor, &ThemeLibraryEditor::baseThemeIDChanged, this, &ThemeListView::placeReplaceButton);
    connect(&m_editor, &ThemeLibraryEditor::editingThemeIDChanged, this, &ThemeListView::showRenaming);
    connect(verticalScrollBar(), &QScrollBar::valueChanged, this, &ThemeListView::placeReplaceButton);
    connect(m_model, &QAbstractItemModel::rowsInserted, this, [this] { updateGeometry(); });
    connect(m_model, &QAbstractItemModel::rowsRemoved, this, [this] { updateGeometry(); });

    restyle();
    showSelection();
    showRenaming();
    placeReplaceButton();
}

ThemeListView::~ThemeListView() = default;

int ThemeListView::rowHeight() const
{
    return std::max(26, fontMetrics().height() + 10);
}

QSize ThemeListView::sizeHint() const
{
    // Grows with the rows up to visibleRows, then scrolls; never shorter than three rows.
    const int rows = std::clamp(m_model->rowCount(), 3, visibleRows);
    return { 200, rows * rowHeight() + 2 * (frameWidth() + listPadding) };
}

QSize ThemeListView::minimumSizeHint() const
{
    return { 120, sizeHint().height() };
}

QWidget* ThemeListView::renameEditor() const
{
    return m_renaming.isValid() ? indexWidget(m_renaming) : nullptr;
}

bool ThemeListView::showsFocusedSelection() const
{
    const QWidget* focus = QApplication::focusWidget();
    return isActiveWindow() && focus && (focus == this || isAncestorOf(focus));
}

std::unique_ptr<QMenu> ThemeListView::createContextMenu(const QModelIndex& index)
{
    const std::optional<QUuid> id = m_model->idAt(index);
    if (!id || *id == ThemeLibrary::unsavedMarkerID())
        return nullptr;
    auto menu = std::make_unique<QMenu>(this);
    menu->setObjectName(u"themeContextMenu"_s);
    QAction* rename = menu->addAction(u"Rename\u2026"_s, this, [this, id = *id] { m_editor.beginRename(id); });
    rename->setObjectName(u"rename"_s);
    if (m_editor.canDeleteThemes()) {
        QAction* remove = menu->addAction(u"Delete"_s, this, [this, id = *id] { m_editor.deleteTheme(id); });
        remove->setObjectName(u"delete"_s);
    }
    menu->addSeparator();
    // Both act on the active theme, whichever row was clicked.
    QAction* copy = menu->addAction(u"Copy to Clipboard"_s, this, [this] { m_editor.copyActiveThemeToClipboard(); });
    copy->setObjectName(u"copyToClipboard"_s);
    QAction* save = menu->addAction(u"Save as JSON File\u2026"_s, this, [this] { m_editor.saveActiveThemeToFile(); });
    save->setObjectName(u"saveAsJSONFile"_s);
    return menu;
}

void ThemeListView::mousePressEvent(QMouseEvent* event)
{
    // A right click only opens the row's menu: selecting the row would make its theme active and drop unsaved
    // edits before the user chose anything.
    if (event->button() == Qt::RightButton) {
        event->accept();
        return;
    }
    QListView::mousePressEvent(event);
}

void ThemeListView::contextMenuEvent(QContextMenuEvent* event)
{
    QModelIndex index;
    QPoint where = event->globalPos();
    if (event->reason() == QContextMenuEvent::Keyboard) {
        index = currentIndex();
        where = viewport()->mapToGlobal(visualRect(index).bottomLeft() + QPoint(textLeft(), 0));
    } else {
        index = indexAt(viewport()->mapFrom(this, event->pos()));
    }
    const std::unique_ptr<QMenu> menu = createContextMenu(index);
    if (!menu) {
        event->ignore();
        return;
    }
    menu->exec(where);
}

void ThemeListView::keyPressEvent(QKeyEvent* event)
{
    if (event->key() == Qt::Key_F2 && event->modifiers() == Qt::NoModifier) {
        const std::optional<QUuid> id = m_model->idAt(currentIndex());
        if (id && *id != ThemeLibrary::unsavedMarkerID() && selectionModel()->isSelected(currentIndex())) {
            m_editor.beginRename(*id);
            event->accept();
            return;
        }
    }
    QListView::keyPressEvent(event);
}

void ThemeListView::resizeEvent(QResizeEvent* event)
{
    QListView::resizeEvent(event);
    placeReplaceButton();
}

void ThemeListView::changeEvent(QEvent* event)
{
    QListView::changeEvent(event);
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::ActivationChange) {
        restyle();
        viewport()->update();
    }
}

void ThemeListView::focusInEvent(QFocusEvent* event)
{
    QListView::focusInEvent(event);
    // The highlight turns between the accent and grey.
    restyle();
    viewport()->update();
}

void ThemeListView::focusOutEvent(QFocusEvent* event)
{
    QListView::focusOutEvent(event);
    // The highlight turns between the accent and grey.
    restyle();
    viewport()->update();
}

void ThemeListView::updateGeometries()
{
    QListView::updateGeometries();
    placeReplaceButton();
}

void ThemeListView::selectionChanged(const QItemSelection& selected, const QItemSelection& deselected)
{
    QListView::selectionChanged(selected, deselected);
    if (m_reflecting)
        return;
    const QModelIndexList rows = selectionModel()->selectedRows();
    const std::optional<QUuid> id = rows.isEmpty() ? std::nullopt : m_model->idAt(rows.first());
    m_shownSelection = id;
    m_editor.setSelectedThemeID(id);
    restyle();
}

void ThemeListView::followLibrary()
{
    {
        const QScopedValueRollback reflecting(m_reflecting, true);
        m_model->refresh();
    }
    showSelection();
    showRenaming();
    placeReplaceButton();
}

void ThemeListView::showSelection()
{
    const QScopedValueRollback reflecting(m_reflecting, true);
    const std::optional<QUuid> id = m_editor.selectedThemeID();
    const QModelIndex index = id ? m_model->indexOf(*id) : QModelIndex();
    if (index.isValid()) {
        if (currentIndex() != index || !selectionModel()->isSelected(index))
            selectionModel()->setCurrentIndex(index, QItemSelectionModel::ClearAndSelect);
        // Scrolled to once, when it becomes the highlighted row, not again with every later edit.
        if (m_shownSelection != id)
            scrollTo(index);
        m_shownSelection = id;
    } else {
        selectionModel()->clearSelection();
        m_shownSelection.reset();
    }
    placeReplaceButton();
}

void ThemeListView::showRenaming()
{
    const std::optional<QUuid> id = m_editor.editingThemeID();
    const QModelIndex target = id ? m_model->indexOf(*id) : QModelIndex();
    if (m_renaming.isValid() && m_renaming != target) {
        const QWidget* field = indexWidget(m_renaming);
        const bool hadFocus = field && field->hasFocus();
        closePersistentEditor(m_renaming);
        m_renaming = QPersistentModelIndex();
        if (hadFocus)
            setFocus(Qt::OtherFocusReason);
    }
    if (!target.isValid() || isPersistentEditorOpen(target))
        return;
    m_renaming = target;
    openPersistentEditor(target);
    scrollTo(target);
    if (auto* field = qobject_cast<QLineEdit*>(indexWidget(target))) {
        field->selectAll();
        field->setFocus(Qt::OtherFocusReason);
    }
}

void ThemeListView::placeReplaceButton()
{
    const std::optional<QUuid> base = m_editor.baseThemeID();
    // The same as asking the editor whether the row offers a replacement, without reading the settings again.
    const QModelIndex index = base && m_model->hasUnsavedRow() ? m_model->indexOf(*base) : QModelIndex();
    const bool wasVisible = m_replace->isVisibleTo(this);
    if (!index.isValid()) {
        m_replace->hide();
    } else {
        const QRect row = visualRect(index);
        m_replace->move(row.right() - textRight - replaceButtonSide + 4, row.center().y() - replaceButtonSide / 2 + 1);
        m_replace->show();
        m_replace->raise();
        restyle();
    }
    if (wasVisible != m_replace->isVisibleTo(this)) {
        // The name of the row makes room for the button, or takes its place again.
        updateEditorGeometries();
        viewport()->update();
    }
}

void ThemeListView::restyle()
{
    // On the accent highlight of a focused selection the accent-tinted icon would vanish; it turns white there.
    const std::optional<QUuid> base = m_editor.baseThemeID();
    const QModelIndex index = base ? m_model->indexOf(*base) : QModelIndex();
    const bool onHighlight = index.isValid() && selectionModel()->isSelected(index) && showsFocusedSelection();
    const QColor tint = onHighlight ? palette().color(QPalette::HighlightedText) : SettingsStyle::accent(palette());
    if (tint != m_replaceTint || m_replace->icon().isNull()) {
        m_replaceTint = tint;
        m_replace->setIcon(QIcon(SettingsStyle::symbol(
            this, u"square.and.arrow.down.on.square"_s, replaceIconPoints, SymbolWeight::medium, tint)));
    }
}
