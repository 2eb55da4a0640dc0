// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/layoutpicker.h"

#include "keyboard/xkblayoutlist.h"
#include "ui/settingsstyle.h"

#include <QAbstractListModel>
#include <QAction>
#include <QApplication>
#include <QCoreApplication>
#include <QKeyEvent>
#include <QLineEdit>
#include <QListView>
#include <QMouseEvent>
#include <QPainter>
#include <QScreen>
#include <QScrollBar>
#include <QSortFilterProxyModel>
#include <QStyleOptionComboBox>
#include <QStylePainter>
#include <QStyledItemDelegate>
#include <QVBoxLayout>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

// Rows of the choice model: the two fixed choices, a separator, then the layouts in XkbLayoutList order.
constexpr int separatorRow = 2;
constexpr int firstLayoutRow = 3;
constexpr int nameRole = Qt::UserRole + 1;
constexpr int rawRole = Qt::UserRole + 2;

constexpr int popupWidth = 420;
constexpr int popupHeight = 380;
constexpr int rowPadding = 9;
constexpr int separatorHeight = 9;
constexpr int checkColumn = 22;
constexpr int sideMargin = 8;
constexpr double namePixels = 11;

} // namespace

QString foldedForSearch(const QString& text)
{
    const QString decomposed = text.normalized(QString::NormalizationForm_KD);
    QString folded;
    folded.reserve(decomposed.size());
    for (QChar c : decomposed) {
        if (!c.isMark())
            folded.append(c);
    }
    return folded.toCaseFolded();
}

/**
 * Every key label choice, made once for the whole program on first use: the layout list is long and its search
 * keys cost a normalisation each.
 */
class LayoutChoiceModel final : public QAbstractListModel
{
public:
    static LayoutChoiceModel* shared()
    {
        static LayoutChoiceModel* model = new LayoutChoiceModel(QCoreApplication::instance());
        return model;
    }

    int rowCount(const QModelIndex& parent = {}) const override
    {
        if (parent.isValid())
            return 0;
        return m_layouts.isEmpty() ? separatorRow : firstLayoutRow + int(m_layouts.size());
    }

    QVariant data(const QModelIndex& index, int role) const override
    {
        const int row = index.row();
        if (!index.isValid() || row == separatorRow)
            return {};
        switch (role) {
        case Qt::DisplayRole:
        case Qt::AccessibleTextRole:
            return row < separatorRow ? choice(row).displayName() : m_layouts[row - firstLayoutRow].description;
        case nameRole:
            return row < separatorRow ? QString() : m_layouts[row - firstLayoutRow].name.toString();
        case rawRole:
            return choice(row).rawValue();
        default:
            return {};
        }
    }

    Qt::ItemFlags flags(const QModelIndex& index) const override
    {
        if (!index.isValid() || index.row() == separatorRow)
            return Qt::NoItemFlags;
        return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemNeverHasChildren;
    }

    KeyLabels choice(int row) const
    {
        if (row == 0)
            return { KeyLabels::Mode::followLayout, {} };
        if (row == 1)
            return { KeyLabels::Mode::printed, {} };
        return { KeyLabels::Mode::fixedLayout, m_layouts[row - firstLayoutRow].name };
    }

    /** The folded description and name of layout row `row`. */
    const QString& searchKey(int row) const { return m_searchKeys[row - firstLayoutRow]; }

private:
    explicit LayoutChoiceModel(QObject* parent)
        : QAbstractListModel(parent)
        , m_layouts(XkbLayoutList::all())
    {
        m_searchKeys.reserve(m_layouts.size());
        for (const XkbLayoutInfo& info : m_layouts)
            m_searchKeys.append(foldedForSearch(info.description + u' ' + info.name.toString()));
    }

    QList<XkbLayoutInfo> m_layouts;
    QStringList m_searchKeys;
};

/** Keeps the fixed choices and the layouts containing every searched word; the separator only above some. */
class LayoutChoiceFilter final : public QSortFilterProxyModel
{
public:
    explicit LayoutChoiceFilter(QObject* parent)
        : QSortFilterProxyModel(parent)
    {
        setSourceModel(LayoutChoiceModel::shared());
    }

    void setSearch(const QString& text)
    {
        const QStringList words = foldedForSearch(text).split(u' ', Qt::SkipEmptyParts);
        if (words == m_words)
            return;
        m_words = words;
        const LayoutChoiceModel* model = LayoutChoiceModel::shared();
        m_anyLayout = false;
        for (int row = firstLayoutRow; row < model->rowCount() && !m_anyLayout; ++row)
            m_anyLayout = matches(row);
        invalidateFilter();
    }

    bool isSearching() const { return !m_words.isEmpty(); }

protected:
    bool filterAcceptsRow(int row, const QModelIndex&) const override
    {
        if (row < separatorRow)
            return true;
        if (row == separatorRow)
            return m_anyLayout;
        return matches(row);
    }

private:
    bool matches(int row) const
    {
        const QString& key = LayoutChoiceModel::shared()->searchKey(row);
        return std::all_of(
            m_words.cbegin(), m_words.cend(), [&key](const QString& word) { return key.contains(word); });
    }

    QStringList m_words;
    bool m_anyLayout = true;
};

/** A choice as a menu item: a check mark before the chosen one, the layout's name small at the far end. */
class LayoutChoiceDelegate final : public QStyledItemDelegate
{
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    QString chosenRaw;

    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override
    {
        if (!(index.flags() & Qt::ItemIsEnabled))
            return { 0, separatorHeight };
        return { 0, option.fontMetrics.height() + rowPadding };
    }

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override
    {
        const QWidget* widget = option.widget;
        const QPalette& palette = option.palette;
        if (!(index.flags() & Qt::ItemIsEnabled)) {
            QColor line = SettingsStyle::primaryText(palette);
            line.setAlphaF(0.15f);
            const int y = option.rect.center().y();
            painter->fillRect(QRect(option.rect.left() + sideMargin, y, option.rect.width() - 2 * sideMargin, 1), line);
            return;
        }

        QStyleOptionViewItem item = option;
        initStyleOption(&item, index);
        item.text.clear();
        item.state &= ~QStyle::State_HasFocus;
        QStyle* style = widget ? widget->style() : QApplication::style();
        style->drawControl(QStyle::CE_ItemViewItem, &item, painter, widget);

        const bool selected = option.state & QStyle::State_Selected;
        const QColor text = selected ? palette.color(QPalette::HighlightedText) : palette.color(QPalette::Text);
        QColor faint = text;
        faint.setAlphaF(selected ? 0.8f : 0.5f);
        QRect rect = option.rect.adjusted(sideMargin, 0, -sideMargin, 0);

        if (index.data(rawRole).toString() == chosenRaw) {
            const QPixmap check = SettingsStyle::symbol(widget, u"checkmark"_s, 11, SymbolWeight::semibold, text);
            const QSizeF side = check.deviceIndependentSize();
            painter->drawPixmap(QPointF(rect.left() + (checkColumn - side.width()) / 2 - 2,
                                    rect.top() + (rect.height() - side.height()) / 2),
                check);
        }
        rect.setLeft(rect.left() + checkColumn);

        const QString name = index.data(nameRole).toString();
        if (!name.isEmpty()) {
            QFont small = SettingsStyle::font(widget, namePixels);
            const QFontMetrics metrics(small);
            // One pixel to spare: the rounded advance can fall short of the drawn width, which elides in vain.
            const int natural = metrics.horizontalAdvance(name) + 1;
            const int width = std::min(natural, rect.width() / 2);
            painter->setFont(small);
            painter->setPen(faint);
            painter->drawText(QRect(rect.right() - width + 1, rect.top(), width, rect.height()),
                Qt::AlignRight | Qt::AlignVCenter,
                width == natural ? name : metrics.elidedText(name, Qt::ElideMiddle, width));
            rect.setRight(rect.right() - width - 2 * sideMargin);
        }
        painter->setFont(option.font);
        painter->setPen(text);
        painter->drawText(rect, Qt::AlignLeft | Qt::AlignVCenter,
            option.fontMetrics.elidedText(index.data().toString(), Qt::ElideRight, rect.width()));
    }
};

LayoutPopup::LayoutPopup(QWidget* opener)
    : QFrame(opener, Qt::Popup)
    , m_opener(opener)
    , m_search(new QLineEdit(this))
    , m_list(new QListView(this))
    , m_filter(new LayoutChoiceFilter(this))
    , m_delegate(new LayoutChoiceDelegate(this))
{
    setObjectName(u"layoutPopup"_s);
    setFrameStyle(QFrame::StyledPanel | QFrame::Plain);
    setAttribute(Qt::WA_WindowPropagation);

    m_search->setObjectName(u"layoutSearch"_s);
    m_search->setPlaceholderText(u"Search layouts"_s);
    m_search->setClearButtonEnabled(true);
    m_search->addAction(QIcon(SettingsStyle::symbol(this, u"magnifyingglass"_s, 12, SymbolWeight::regular,
                            SettingsStyle::secondaryText(palette()))),
        QLineEdit::LeadingPosition);
    m_search->installEventFilter(this);

    m_list->setObjectName(u"layoutList"_s);
    m_list->setModel(m_filter);
    m_list->setItemDelegate(m_delegate);
    m_list->setFrameShape(QFrame::NoFrame);
    m_list->setFocusPolicy(Qt::NoFocus);
    m_list->setMouseTracking(true);
    m_list->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    m_list->setAccessibleName(u"Key labels"_s);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(6, 6, 6, 6);
    layout->setSpacing(6);
    layout->addWidget(m_search);
    layout->addWidget(m_list, 1);

    connect(m_search, &QLineEdit::textChanged, this, &LayoutPopup::search);
    connect(m_list, &QAbstractItemView::entered, this, [this](const QModelIndex& index) { select(index.row()); });
    connect(m_list, &QAbstractItemView::clicked, this, [this](const QModelIndex& index) {
        select(index.row());
        chooseCurrent();
    });
}

LayoutPopup::~LayoutPopup() = default;

void LayoutPopup::open(const KeyLabels& current)
{
    m_currentRaw = current.rawValue();
    m_delegate->chosenRaw = m_currentRaw;
    m_search->clear();
    place();
    show();
    m_search->setFocus(Qt::PopupFocusReason);
    search({});
}

void LayoutPopup::search(const QString& text)
{
    m_filter->setSearch(text);
    if (m_filter->isSearching()) {
        // The first matching layout, ready for Return; nothing when no layout matches.
        const bool anyLayout = m_filter->rowCount() > separatorRow;
        select(anyLayout ? firstLayoutRow : -1);
        m_list->scrollToTop();
        return;
    }
    const QModelIndexList chosen = m_filter->match(m_filter->index(0, 0), rawRole, m_currentRaw, 1, Qt::MatchExactly);
    select(chosen.isEmpty() ? 0 : chosen.first().row());
    if (!chosen.isEmpty())
        m_list->scrollTo(chosen.first(), QAbstractItemView::PositionAtCenter);
}

void LayoutPopup::select(int proxyRow)
{
    const QModelIndex index = m_filter->index(proxyRow, 0);
    if (!index.isValid()) {
        m_list->selectionModel()->clear();
        return;
    }
    m_list->selectionModel()->setCurrentIndex(index, QItemSelectionModel::ClearAndSelect);
    m_list->scrollTo(index);
}

void LayoutPopup::step(int rows)
{
    const int count = m_filter->rowCount();
    if (count == 0)
        return;
    const int from = m_list->currentIndex().isValid() ? m_list->currentIndex().row() : (rows > 0 ? -1 : count);
    int to = std::clamp(from + rows, 0, count - 1);
    // The separator is passed over, or backed off from at the list's end.
    if (!(m_filter->index(to, 0).flags() & Qt::ItemIsEnabled)) {
        const int direction = rows > 0 ? 1 : -1;
        to = (to + direction >= 0 && to + direction < count) ? to + direction : to - direction;
    }
    select(to);
}

void LayoutPopup::chooseCurrent()
{
    const QModelIndex index = m_list->currentIndex();
    if (!index.isValid() || !(index.flags() & Qt::ItemIsEnabled))
        return;
    const KeyLabels labels = LayoutChoiceModel::shared()->choice(m_filter->mapToSource(index).row());
    hide();
    emit chosen(labels);
}

bool LayoutPopup::eventFilter(QObject* watched, QEvent* event)
{
    if (watched != m_search || event->type() != QEvent::KeyPress)
        return QFrame::eventFilter(watched, event);
    const auto* key = static_cast<QKeyEvent*>(event);
    const int page = std::max(1, m_list->viewport()->height() / std::max(1, m_list->sizeHintForRow(0)) - 1);
    switch (key->key()) {
    case Qt::Key_Up:
        step(-1);
        return true;
    case Qt::Key_Down:
        step(1);
        return true;
    case Qt::Key_PageUp:
        step(-page);
        return true;
    case Qt::Key_PageDown:
        step(page);
        return true;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        chooseCurrent();
        return true;
    case Qt::Key_Escape:
        hide();
        return true;
    default:
        return false;
    }
}

void LayoutPopup::mousePressEvent(QMouseEvent* event)
{
    // A click on the opener closes the popup and must not open it again.
    if (!rect().contains(event->position().toPoint())
        && m_opener->rect().contains(m_opener->mapFromGlobal(event->globalPosition().toPoint())))
        setAttribute(Qt::WA_NoMouseReplay);
    QFrame::mousePressEvent(event);
}

void LayoutPopup::place()
{
    const QRect screen = m_opener->screen()->availableGeometry();
    const QSize size(
        std::min(std::max(popupWidth, m_opener->width()), screen.width()), std::min(popupHeight, screen.height()));
    const QPoint below = m_opener->mapToGlobal(QPoint(0, m_opener->height() + 2));
    const QPoint above = m_opener->mapToGlobal(QPoint(0, -size.height() - 2));
    QPoint at = (below.y() + size.height() <= screen.bottom() + 1 || above.y() < screen.top()) ? below : above;
    at.setX(std::clamp(at.x(), screen.left(), screen.right() + 1 - size.width()));
    at.setY(std::clamp(at.y(), screen.top(), screen.bottom() + 1 - size.height()));
    setGeometry(QRect(at, size));
}

LayoutPicker::LayoutPicker(QWidget* parent)
    : QAbstractButton(parent)
{
    setFocusPolicy(Qt::StrongFocus);
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    setAttribute(Qt::WA_Hover);
    setCurrent({});
    connect(this, &QAbstractButton::clicked, this, &LayoutPicker::showPopup);
}

LayoutPicker::~LayoutPicker() = default;

void LayoutPicker::setCurrent(const KeyLabels& labels)
{
    m_current = labels;
    setText(labels.displayName());
    setToolTip(labels.mode == KeyLabels::Mode::fixedLayout ? text() + u" — "_s + labels.layout.toString() : QString());
}

void LayoutPicker::showPopup()
{
    if (!m_popup) {
        m_popup = new LayoutPopup(this);
        connect(m_popup, &LayoutPopup::chosen, this, [this](const KeyLabels& labels) {
            if (labels == m_current)
                return;
            setCurrent(labels);
            emit chosen(labels);
        });
    }
    m_popup->open(m_current);
}

void LayoutPicker::initStyleOption(QStyleOptionComboBox* option) const
{
    option->initFrom(this);
    option->editable = false;
    option->frame = true;
    option->subControls = QStyle::SC_All;
    if (isDown() || (m_popup && m_popup->isVisible()))
        option->state |= QStyle::State_Sunken | QStyle::State_On;
    if (underMouse())
        option->activeSubControls = QStyle::SC_ComboBoxArrow;
}

QSize LayoutPicker::sizeHint() const
{
    // At least as wide as the longest fixed choice, so most choices keep the width; longer names widen it.
    QStyleOptionComboBox option;
    initStyleOption(&option);
    const QFontMetrics& metrics = fontMetrics();
    const int textWidth = std::max({ metrics.horizontalAdvance(u"Follow Keyboard Layout"_s),
        metrics.horizontalAdvance(u'x') * 26, metrics.horizontalAdvance(text()) });
    return style()->sizeFromContents(QStyle::CT_ComboBox, &option, QSize(textWidth, metrics.height()), this);
}

QSize LayoutPicker::minimumSizeHint() const
{
    QStyleOptionComboBox option;
    initStyleOption(&option);
    return style()->sizeFromContents(
        QStyle::CT_ComboBox, &option, QSize(fontMetrics().horizontalAdvance(u'x') * 12, fontMetrics().height()), this);
}

void LayoutPicker::paintEvent(QPaintEvent*)
{
    QStylePainter painter(this);
    QStyleOptionComboBox option;
    initStyleOption(&option);
    const QRect field = style()->subControlRect(QStyle::CC_ComboBox, &option, QStyle::SC_ComboBoxEditField, this);
    option.currentText = fontMetrics().elidedText(text(), Qt::ElideRight, field.width());
    painter.drawComplexControl(QStyle::CC_ComboBox, option);
    painter.drawControl(QStyle::CE_ComboBoxLabel, option);
}

void LayoutPicker::keyPressEvent(QKeyEvent* event)
{
    const int key = event->key();
    const bool plain = !(event->modifiers() & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier));
    if (key == Qt::Key_F4
        || ((key == Qt::Key_Down || key == Qt::Key_Up) && !(event->modifiers() & Qt::ControlModifier))) {
        showPopup();
        return;
    }
    const QString typed = event->text();
    if (plain && !typed.isEmpty() && typed.front().isPrint() && !typed.front().isSpace()) {
        showPopup();
        m_popup->searchField()->setText(typed);
        return;
    }
    QAbstractButton::keyPressEvent(event);
}
