// SPDX-License-Identifier: GPL-3.0-or-later
// Pictures of the keyboard drawn without a window: that they show what the panel paints, and the theme files they
// can be drawn from.
#include "app/renderer.h"
#include "base/clock.h"
#include "base/settingkeys.h"
#include "input/keyboardmonitor.h"
#include "keyboard/keyboardscene.h"
#include "panel/keyboardcontentview.h"
#include "testsupport.h"
#include "theme/themejson.h"

#include <QFile>
#include <QGuiApplication>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

QString writeFile(const QTemporaryDir& dir, const QString& name, const QByteArray& contents)
{
    QFile file(dir.filePath(name));
    if (!file.open(QIODevice::WriteOnly) || file.write(contents) != contents.size())
        return {};
    return file.fileName();
}

/** The panel's content view in `theme` at `size`, with `held` down and every animation finished. */
QImage panelDrawing(const ThemeConfig& theme, const QSize& size, const QList<KeyCode>& held)
{
    TestSupport::TemporaryStore settings;
    settings->setValue(SettingKeys::activeThemeConfig(), theme);
    ManualClock clock;
    KeyboardMonitor monitor(*settings, clock);
    KeyboardContentView view(nullptr, *settings, clock, &monitor, nullptr);
    view.resize(size);
    // Shown, as in the panel, so that the scene is laid out before the keys go down.
    view.setAttribute(Qt::WA_DontShowOnScreen);
    view.show();
    for (KeyCode code : held)
        monitor.handleKeyDown(code);
    clock.advance(5.0);
    QImage image(size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    view.render(&image, {}, {}, QWidget::RenderFlags());
    return image.convertToFormat(QImage::Format_ARGB32);
}

} // namespace

class TestRenderer final : public QObject
{
    Q_OBJECT

private slots:
    void pictureIsThePanelsDrawing_data();
    void pictureIsThePanelsDrawing();
    void sizeScaleAndBackground();
    void themeFiles_data();
    void themeFiles();
};

void TestRenderer::pictureIsThePanelsDrawing_data()
{
    QTest::addColumn<int>("theme");
    QTest::addColumn<int>("width");
    QTest::addColumn<QList<KeyCode>>("held");
    QTest::newRow("the README's picture") << 0 << 900 << QList<KeyCode> { 56, 55, 0, 31 };
    QTest::newRow("Black, narrow") << 2 << 703 << QList<KeyCode> { 49, 123, 126, 63 };
}

void TestRenderer::pictureIsThePanelsDrawing()
{
    QFETCH(int, theme);
    QFETCH(int, width);
    QFETCH(QList<KeyCode>, held);
    KeyboardRenderer::Picture picture;
    picture.theme = builtInThemes().at(theme).config;
    picture.width = width;
    picture.heldKeys = held;
    const QImage rendered = KeyboardRenderer::render(picture).convertToFormat(QImage::Format_ARGB32);
    QCOMPARE(rendered.width(), width);
    const QImage panel = panelDrawing(picture.theme, rendered.size(), held);
    QCOMPARE(rendered, panel);
    // Not two pictures of nothing: the held keys do show.
    QVERIFY(panelDrawing(picture.theme, rendered.size(), {}) != panel);
}

void TestRenderer::sizeScaleAndBackground()
{
    KeyboardRenderer::Picture picture;
    picture.theme = defaultThemeConfig();
    picture.width = 900;
    // The panel's shape: the same height the panel takes at that width.
    const QSize size = KeyboardRenderer::logicalSize(900, picture.theme);
    QCOMPARE(size.height(), qRound(900 / KeyboardScene::aspectRatio(picture.theme)));

    picture.scale = 2;
    picture.background = Qt::white;
    const QImage image = KeyboardRenderer::render(picture);
    QCOMPARE(image.size(), size * 2);
    QCOMPARE(image.devicePixelRatio(), 2.0);
    // The corners lie outside the rounded chassis: background there, transparent without one.
    QCOMPARE(image.pixelColor(0, 0), QColor(Qt::white));
    picture.background = Qt::transparent;
    QCOMPARE(KeyboardRenderer::render(picture).pixelColor(0, 0).alpha(), 0);
}

void TestRenderer::themeFiles_data()
{
    QTest::addColumn<QByteArray>("contents");
    QTest::addColumn<int>("theme");
    QTest::addColumn<QString>("error");

    const QList<NamedTheme>& builtIn = builtInThemes();
    QTest::newRow("document: its first theme")
        << ThemeJson::encodeDocument({ builtIn.at(3), builtIn.at(1) }) << 3 << QString();
    QTest::newRow("one saved theme") << ThemeJson::encodeNamedTheme(builtIn.at(4)) << 4 << QString();
    QTest::newRow("bare configuration") << ThemeJson::encodeConfig(builtIn.at(5).config) << 5 << QString();
    QTest::newRow("empty document") << "[]"_ba << -1 << u"holds no theme"_s;
    QTest::newRow("not JSON") << "theme: black"_ba << -1 << u"not JSON"_s;
    QTest::newRow("some other JSON object") << R"({"keyboardVisible": true})"_ba << -1 << u"neither"_s;
    QTest::newRow("missing file") << QByteArray() << -1 << u"cannot read"_s;
}

void TestRenderer::themeFiles()
{
    QFETCH(QByteArray, contents);
    QFETCH(int, theme);
    QFETCH(QString, error);
    QTemporaryDir dir;
    const QString path = contents.isNull() ? dir.filePath(u"missing.json"_s) : writeFile(dir, u"t.json"_s, contents);
    const std::variant<ThemeConfig, QString> result = KeyboardRenderer::themeFromFile(path);
    if (theme >= 0) {
        if (const QString* refused = std::get_if<QString>(&result))
            QFAIL(qPrintable(*refused));
        // Theme documents keep three decimals; the drawing cannot tell.
        QCOMPARE(ThemeJson::encodeDocument({ { {}, {}, std::get<ThemeConfig>(result) } }),
            ThemeJson::encodeDocument({ { {}, {}, builtInThemes().at(theme).config } }));
    } else {
        QVERIFY(std::holds_alternative<QString>(result));
        QVERIFY2(std::get<QString>(result).contains(error), qPrintable(std::get<QString>(result)));
    }
}

QTEST_MAIN(TestRenderer)
#include "testrenderer.moc"
