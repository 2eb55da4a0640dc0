// SPDX-License-Identifier: GPL-3.0-or-later
// Key legends from keymaps compiled by name, the choice of board, and the ISO shape's geometry.
#include "base/settingsstore.h"
#include "keyboard/keyboardview.h"
#include "keyboard/keylabelprovider.h"
#include "keyboard/keylegends.h"
#include "keyboard/keyshape.h"

#include "testsupport.h"

#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const KeyDef* keyIn(const KeyBoard& board, KeyCode code)
{
    for (const KeyRow& row : board.rows) {
        for (const KeyDef& key : row) {
            if (key.keycode == code)
                return &key;
        }
    }
    return nullptr;
}

QString describe(const KeyLegend* legend)
{
    if (!legend)
        return u"none"_s;
    return legend->label + u' ' + legend->secondaryLabel.value_or(u"-"_s) + u' ' + legend->altGrLabel.value_or(u"-"_s);
}

class FixedLayouts final : public KeyboardLayoutSource
{
public:
    ActiveKeyboardLayouts value;
    ActiveKeyboardLayouts layouts() const override { return value; }
    QString origin() const override { return u"test"_s; }
};

} // namespace

class TestKeyLegends final : public QObject
{
    Q_OBJECT

private slots:
    void legends_data()
    {
        QTest::addColumn<QString>("layout");
        QTest::addColumn<KeyCode>("code");
        QTest::addColumn<QString>("expected"); // label, shifted, AltGr
        // Letters show their capital alone; other keys both levels; AltGr where the layout has it.
        QTest::newRow("us A") << u"us"_s << KeyCode(0) << u"A - -"_s;
        QTest::newRow("us 2") << u"us"_s << KeyCode(19) << u"2 @ -"_s;
        QTest::newRow("de Y on Z") << u"de"_s << KeyCode(6) << u"Y - -"_s;
        QTest::newRow("de Q with @") << u"de"_s << KeyCode(12) << u"Q - @"_s;
        QTest::newRow("de ö") << u"de"_s << KeyCode(41) << u"Ö - -"_s;
        QTest::newRow("de ß") << u"de"_s << KeyCode(27) << u"ß ? \\"_s;
        QTest::newRow("de dead circumflex") << u"de"_s << KeyCode(10) << u"^ ° ′"_s;
        QTest::newRow("de left of Z") << u"de"_s << KeyCode(50) << u"< > |"_s;
        QTest::newRow("de nodeadkeys") << u"de(nodeadkeys)"_s << KeyCode(10) << u"^ ° ¬"_s;
        QTest::newRow("fr A on Q") << u"fr"_s << KeyCode(12) << u"A - -"_s;
        QTest::newRow("fr & over 1") << u"fr"_s << KeyCode(18) << u"& 1 ¹"_s;
        QTest::newRow("fr ù, its dead AltGr left off") << u"fr"_s << KeyCode(39) << u"ù % -"_s;
        QTest::newRow("fr dead circumflex") << u"fr"_s << KeyCode(33) << u"^ ¨ -"_s;
        QTest::newRow("ru Й") << u"ru"_s << KeyCode(12) << u"Й - -"_s;
        QTest::newRow("ru Ё") << u"ru"_s << KeyCode(10) << u"Ё - -"_s;
        QTest::newRow("ru punctuation") << u"ru"_s << KeyCode(44) << u". , -"_s;
        QTest::newRow("word key") << u"de"_s << KeyCode(36) << u"none"_s;
    }

    void legends()
    {
        QFETCH(QString, layout);
        QFETCH(KeyCode, code);
        QFETCH(QString, expected);
        const auto legends = KeyLegends::compile(*XkbLayout::fromString(layout));
        QVERIFY(legends);
        QCOMPARE(describe(legends->legend(code)), expected);
    }

    void usKeymapMatchesThePrintedTable()
    {
        // Derived from the keymap, the US legends are the table's, but for the two keys a Mac prints § and `
        // on; the printed board draws the table as it stands.
        const auto us = KeyLegends::compile(XkbLayout { u"us"_s, {} });
        QVERIFY(us);
        QStringList differing;
        for (const KeyRow& row : keyboardLayout()) {
            for (const KeyDef& key : row) {
                const KeyLegend* legend = us->legend(key.keycode);
                if (legend && (legend->label != key.label || legend->secondaryLabel != key.secondaryLabel))
                    differing << key.id;
            }
        }
        QCOMPARE(differing, (QStringList { u"10-§"_s, u"50-`"_s }));
        QVERIFY(us->bindsKeyLeftOfZ());

        const auto board = KeyLabelProvider::boardFor({}, KeyboardShape::automatic, ActiveKeyboardLayouts {});
        QCOMPARE(board, KeyBoard::printed());
        QCOMPARE(board->rows, keyboardLayout());
    }

    void boardChoice_data()
    {
        QTest::addColumn<QString>("labels");
        QTest::addColumn<QString>("shape");
        QTest::addColumn<QString>("active");
        QTest::addColumn<QString>("shown");
        QTest::addColumn<bool>("iso");
        QTest::newRow("us follows") << u"follow"_s << u"automatic"_s << u"us"_s << u"us"_s << false;
        QTest::newRow("us intl follows") << u"follow"_s << u"automatic"_s << u"us(intl)"_s << u"us(intl)"_s << false;
        QTest::newRow("de is ISO") << u"follow"_s << u"automatic"_s << u"de"_s << u"de"_s << true;
        QTest::newRow("de forced ANSI") << u"follow"_s << u"ansi"_s << u"de"_s << u"de"_s << false;
        QTest::newRow("us forced ISO") << u"follow"_s << u"iso"_s << u"us"_s << u"us"_s << true;
        QTest::newRow("printed ignores layout") << u"printed"_s << u"automatic"_s << u"fr"_s << u"us"_s << false;
        QTest::newRow("fixed layout") << u"ru"_s << u"automatic"_s << u"us"_s << u"ru"_s << true;
        QTest::newRow("uncompilable is US") << u"follow"_s << u"automatic"_s << u"zz-nonesuch"_s << u"us"_s << false;
    }

    void boardChoice()
    {
        QFETCH(QString, labels);
        QFETCH(QString, shape);
        QFETCH(QString, active);
        QFETCH(QString, shown);
        QFETCH(bool, iso);
        const auto chosen = KeyLabels::fromRawValue(labels);
        QVERIFY(chosen);
        XkbLayout drawn;
        const auto board = KeyLabelProvider::boardFor(*chosen, *KeyboardShapes::fromRawValue(shape),
            ActiveKeyboardLayouts { { *XkbLayout::fromString(active) }, 0, {}, {} }, &drawn);
        QCOMPARE(drawn.toString(), shown);
        QCOMPARE(board->iso, iso);
    }

    void providerFollowsSwitchesAndSettings()
    {
        TestSupport::TemporaryStore store;
        FixedLayouts source;
        source.value = { { { u"us"_s, {} }, { u"de"_s, {} } }, 0, {}, {} };
        KeyLabelProvider provider((*store), &source);
        QSignalSpy changed(&provider, &KeyLabelProvider::boardChanged);
        QCOMPARE(provider.board(), KeyBoard::printed());

        source.value.current = 1;
        emit source.changed();
        QCOMPARE(changed.size(), 1);
        QCOMPARE(keyIn(*provider.board(), 6)->label, u"Y"_s);
        QVERIFY(provider.board()->iso);

        // Nothing that changes the picture emits nothing.
        emit source.changed();
        QCOMPARE(changed.size(), 1);

        (*store).setValue(SettingKeys::keyLabels(), KeyLabels { KeyLabels::Mode::printed, {} });
        QCOMPARE(changed.size(), 2);
        QCOMPARE(provider.board(), KeyBoard::printed());

        // An unknown layout in the settings file reads as following the layout.
        const SettingKey<QString> raw(u"keyLabels"_s, QString());
        store->setValue(raw, u"xx(nonesuch)"_s);
        QCOMPARE((*store).value(SettingKeys::keyLabels()).mode, KeyLabels::Mode::followLayout);
    }

    void isoGeometry()
    {
        const auto board = KeyBoard::make(true, nullptr);
        const KeyboardView view(defaultThemeConfig(), QRectF(0, 0, 900, 330), std::nullopt, std::nullopt, *board);
        const KeyPlacement* ret = view.placement(36);
        const KeyPlacement* backslash = view.placement(42);
        const KeyPlacement* quote = view.placement(39);
        const KeyPlacement* bracket = view.placement(30);
        QVERIFY(ret && backslash && quote && bracket);
        const double s = view.style().keySpacing;
        // Return spans two rows and the spacing between them, its right edge on the board's, its top part
        // one unit wide; its lower part starts one spacing after the backslash key, now on the home row.
        QCOMPARE(ret->rect.top(), bracket->rect.top());
        QCOMPARE(ret->rect.bottom(), quote->rect.bottom());
        QCOMPARE(ret->rect.width(), view.unitSize());
        QCOMPARE(backslash->rect.top(), quote->rect.top());
        QCOMPARE(backslash->rect.left(), quote->rect.right() + s);
        QCOMPARE(ret->rect.left() + ret->notch.width(), backslash->rect.right() + s);
        QCOMPARE(ret->notch.height(), quote->rect.height() + s);
        // Its outline leaves the notch out, and only the notch.
        const QPainterPath outline = keyShapePath(ret->rect, CornerRadii::uniform(6), ret->notch);
        const QRectF notch(ret->rect.bottomLeft() - QPointF(0, ret->notch.height()), ret->notch);
        QVERIFY(!outline.contains(notch.center()));
        QVERIFY(outline.contains(QPointF(notch.center().x(), ret->rect.top() + 10)));
        QVERIFY(outline.contains(QPointF(ret->rect.right() - 10, notch.center().y())));
        const KeyboardView ansi(defaultThemeConfig(), QRectF(0, 0, 900, 330));
        QCOMPARE(ret->rect.right(), ansi.placement(36)->rect.right());
        QVERIFY(ansi.placement(36)->notch.isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestKeyLegends)
#include "testkeylegends.moc"
