// SPDX-License-Identifier: GPL-3.0-or-later
// Build-time tool: renders the scalable application icon into the fixed-size PNGs of the hicolor theme.
//   ordalis_render_icon ICON.svg OUTDIR NAME SIZE...
// writes OUTDIR/<SIZE>x<SIZE>/apps/NAME.png for each SIZE.

#include <QDir>
#include <QImage>
#include <QPainter>
#include <QString>
#include <QSvgRenderer>

#include <cstdio>

namespace {

int fail(const QString& message)
{
    std::fprintf(stderr, "ordalis_render_icon: %s\n", qPrintable(message));
    return 1;
}

} // namespace

int main(int argc, char* argv[])
{
    if (argc < 5)
        return fail(QStringLiteral("usage: ordalis_render_icon ICON.svg OUTDIR NAME SIZE..."));

    const QString source = QString::fromLocal8Bit(argv[1]);
    const QString outDir = QString::fromLocal8Bit(argv[2]);
    const QString name = QString::fromLocal8Bit(argv[3]);

    QSvgRenderer renderer(source);
    if (!renderer.isValid())
        return fail(QStringLiteral("cannot read %1 as SVG").arg(source));
    if (renderer.defaultSize().width() != renderer.defaultSize().height())
        return fail(QStringLiteral("%1 is not square").arg(source));

    for (int i = 4; i < argc; ++i) {
        bool ok = false;
        const int size = QString::fromLatin1(argv[i]).toInt(&ok);
        if (!ok || size < 1 || size > 1024)
            return fail(QStringLiteral("bad size \"%1\"").arg(QString::fromLocal8Bit(argv[i])));

        QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        {
            QPainter painter(&image);
            painter.setRenderHint(QPainter::Antialiasing);
            painter.setRenderHint(QPainter::SmoothPixmapTransform);
            renderer.render(&painter, QRectF(0, 0, size, size));
        }

        const QString dir = QStringLiteral("%1/%2x%2/apps").arg(outDir).arg(size);
        const QString file = QStringLiteral("%1/%2.png").arg(dir, name);
        if (!QDir().mkpath(dir))
            return fail(QStringLiteral("cannot create %1").arg(dir));
        if (!image.convertToFormat(QImage::Format_ARGB32).save(file, "PNG"))
            return fail(QStringLiteral("cannot write %1").arg(file));
    }
    return 0;
}
