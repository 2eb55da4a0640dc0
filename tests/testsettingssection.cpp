// SPDX-License-Identifier: GPL-3.0-or-later
// The collapsible section on the offscreen platform.
#include "ui/settingssection.h"

#include <QLabel>
#include <QSignalSpy>
#include <QTest>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

class TestSettingsSection final : public QObject
{
    Q_OBJECT

private slots:
    void headerClicksCloseAndOpenTheContent();
};

void TestSettingsSection::headerClicksCloseAndOpenTheContent()
{
    QWidget window;
    auto* layout = new QVBoxLayout(&window);
    auto& section = *new SettingsSection(u"Behaviour"_s, u"keyboard.badge.ellipsis"_s, 4);
    layout->addWidget(&section);
    layout->addStretch();
    auto* first = new QLabel(u"first"_s);
    auto* second = new QLabel(u"second"_s);
    section.addRow(first);
    section.addRow(second);
    window.resize(400, 300);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    QCOMPARE(second->geometry().top() - first->geometry().bottom() - 1, 4);
    QCOMPARE(section.header()->chevronAngle(), 90.0);
    const int openHeight = section.height();

    QSignalSpy expanded(&section, &SettingsSection::expandedChanged);
    QTest::mouseClick(section.header(), Qt::LeftButton);
    QVERIFY(!section.isExpanded());
    QVERIFY(section.isAnimating());
    QTRY_VERIFY(!section.isAnimating());
    QTRY_VERIFY(!first->isVisible());
    QCOMPARE(section.header()->chevronAngle(), 0.0);
    QTRY_VERIFY(section.height() < openHeight - first->height());

    QTest::mouseClick(section.header(), Qt::LeftButton);
    QVERIFY(first->isVisible());
    QTRY_VERIFY(!section.isAnimating());
    QTRY_COMPARE(section.height(), openHeight);
    QCOMPARE(section.header()->chevronAngle(), 90.0);
    // Fully open, the content is drawn as is again, without the fading effect.
    QVERIFY(!section.content()->graphicsEffect());
    QCOMPARE(expanded.size(), 2);

    // Hidden, it changes at once.
    section.hide();
    section.setExpanded(false);
    QVERIFY(!section.isAnimating());
    QCOMPARE(section.header()->chevronAngle(), 0.0);
}

QTEST_MAIN(TestSettingsSection)
#include "testsettingssection.moc"
