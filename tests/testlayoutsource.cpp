// SPDX-License-Identifier: GPL-3.0-or-later
#include "dbustestsupport.h"
#include "input/desktoplayoutsource.h"
#include "input/keyboardlayoutsource.h"

#include <QDBusAbstractInterface>
#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusVirtualObject>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QProcess>
#include <QStandardPaths>
#include <QTest>

// GLib's headers have a struct field named `signals`, which Qt defines as a keyword.
#pragma push_macro("signals")
#undef signals
#include <gio/gio.h>
#pragma pop_macro("signals")

using namespace Qt::StringLiterals;
using Pairs = QList<std::pair<QString, QString>>;

Q_DECLARE_METATYPE(Pairs)

namespace {

/** "us,de(nodeadkeys)@1|pc105|grp:alt_shift_toggle": everything a source reports, in one comparable line. */
QString describe(const ActiveKeyboardLayouts& layouts)
{
    QStringList names;
    for (const XkbLayout& layout : layouts.layouts)
        names.append(layout.toString());
    return u"%1@%2|%3|%4"_s.arg(names.join(u','), QString::number(layouts.current), layouts.model, layouts.options);
}

/** One entry of org.kde.KeyboardLayouts.getLayoutsList: short name, variant, long name. */
struct KdeLayout
{
    QString name;
    QString variant;
    QString description;
};

QDBusArgument& operator<<(QDBusArgument& argument, const KdeLayout& layout)
{
    argument.beginStructure();
    argument << layout.name << layout.variant << layout.description;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, KdeLayout& layout)
{
    argument.beginStructure();
    argument >> layout.name >> layout.variant >> layout.description;
    argument.endStructure();
    return argument;
}

} // namespace

Q_DECLARE_METATYPE(KdeLayout)

namespace {

/** Plasma's /Layouts object as the test sets it up; answers with a string instead when told to talk garbage. */
class FakeKdeLayouts final : public QDBusVirtualObject
{
public:
    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override
    {
        ++calls;
        QVariant answer;
        if (garbage)
            answer = u"\x01garbage"_s;
        else if (message.member() == "getLayout"_L1)
            answer = index;
        else if (message.member() == "getLayoutsList"_L1)
            answer = QVariant::fromValue(list);
        else
            return false;
        return connection.send(message.createReply(answer));
    }

    QList<KdeLayout> list;
    uint index = 0;
    bool garbage = false;
    int calls = 0;
};

void emitKdeSignal(const QDBusConnection& bus, const QString& name, const QVariantList& arguments = {})
{
    QDBusMessage signal = QDBusMessage::createSignal(u"/Layouts"_s, u"org.kde.KeyboardLayouts"_s, name);
    signal.setArguments(arguments);
    bus.send(signal);
}

} // namespace

class TestLayoutSource : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        qDBusRegisterMetaType<KdeLayout>();
        qDBusRegisterMetaType<QList<KdeLayout>>();
    }

    void xkbRulesNames_data()
    {
        QTest::addColumn<QByteArray>("property");
        QTest::addColumn<int>("group");
        QTest::addColumn<QString>("expected");
        const auto names = [](const char* model, const char* layouts, const char* variants, const char* options) {
            return "evdev\0"_ba + model + '\0' + layouts + '\0' + variants + '\0' + options + '\0';
        };
        QTest::newRow("variant on the second") << names("pc105", "us,de", ",nodeadkeys", "grp:alt_shift_toggle") << 1
                                               << u"us,de(nodeadkeys)@1|pc105|grp:alt_shift_toggle"_s;
        QTest::newRow("fewer variants") << names("", "us,de,fr", "intl", "") << 2 << u"us(intl),de,fr@2||"_s;
        QTest::newRow("more variants") << names("", "us", ",nodeadkeys", "") << 0 << u"us@0||"_s;
        QTest::newRow("invalid skipped, group follows")
            << names("", "us,D E,ru", "", "") << 2 << u"us,ru@1||"_s;
        QTest::newRow("group of a skipped layout") << names("", "us,D E,ru", "", "") << 1 << u"us,ru@0||"_s;
        QTest::newRow("group past the list") << names("", "us,de", "", "") << 3 << u"us,de@0||"_s;
        QTest::newRow("bad variant drops its layout") << names("", "de,fr", "no dead,", "") << 0 << u"fr@0||"_s;
        QTest::newRow("variant twice") << names("", "de(nodeadkeys)", "intl", "") << 0 << u"us@0||"_s;
        QTest::newRow("huge name") << names("", QByteArray(100, 'a') + ",de", "", "") << 1 << u"de@0||"_s;
        QTest::newRow("garbage model and options")
            << names("pc105;x", "us", "", "grp:toggle rm") << 0 << u"us@0||"_s;
        QTest::newRow("empty layouts") << names("pc105", "", "", "") << 0 << u"us@0|pc105|"_s;
        QTest::newRow("cut short") << "evdev\0pc104"_ba << 0 << u"us@0|pc104|"_s;
        QTest::newRow("missing property") << QByteArray() << 0 << u"us@0||"_s;
    }
    void xkbRulesNames()
    {
        QFETCH(QByteArray, property);
        QFETCH(int, group);
        QFETCH(QString, expected);
        QCOMPARE(describe(KeyboardLayoutNames::XkbRulesNames::fromProperty(property).at(group)), expected);
    }

    void gnomeSources_data()
    {
        QTest::addColumn<Pairs>("sources");
        QTest::addColumn<Pairs>("mru");
        QTest::addColumn<QString>("expected");
        const Pairs usDe { { u"xkb"_s, u"us"_s }, { u"xkb"_s, u"de+nodeadkeys"_s } };
        QTest::newRow("most recent first") << usDe << Pairs { usDe.at(1), usDe.at(0) } << u"us,de(nodeadkeys)@1||"_s;
        QTest::newRow("no recent list") << usDe << Pairs {} << u"us,de(nodeadkeys)@0||"_s;
        QTest::newRow("recent entry not listed") << usDe << Pairs { { u"xkb"_s, u"fr"_s } } << u"us,de(nodeadkeys)@0||"_s;
        const Pairs withIbus { { u"xkb"_s, u"us"_s }, { u"ibus"_s, u"anthy"_s }, { u"xkb"_s, u"ru"_s } };
        QTest::newRow("ibus left out") << withIbus << Pairs { withIbus.at(1), withIbus.at(2) } << u"us,ru@1||"_s;
        QTest::newRow("only ibus") << Pairs { { u"ibus"_s, u"us"_s } } << Pairs {} << u"us@0||"_s;
        QTest::newRow("garbage id") << Pairs { { u"xkb"_s, u"de+"_s }, { u"xkb"_s, u"fr"_s } }
                                    << Pairs { { u"xkb"_s, u"fr"_s } } << u"fr@0||"_s;
    }
    void gnomeSources()
    {
        QFETCH(Pairs, sources);
        QFETCH(Pairs, mru);
        QFETCH(QString, expected);
        const int current = KeyboardLayoutNames::gnomeCurrent(sources, mru).value_or(0);
        QCOMPARE(describe(KeyboardLayoutNames::assemble(KeyboardLayoutNames::fromGnomeSources(sources), current, {}, {})),
            expected);
    }

    void defaultKeyboard_data()
    {
        QTest::addColumn<QByteArray>("contents");
        QTest::addColumn<QString>("expected");
        QTest::newRow("debian") << "# KEYBOARD CONFIGURATION FILE\n\nXKBMODEL=\"pc105\"\nXKBLAYOUT=\"de,us\"\n"
                                   "XKBVARIANT=\"nodeadkeys,\"\nXKBOPTIONS=\"grp:alt_shift_toggle\"\n"
                                   "BACKSPACE=\"guess\"\n"_ba
                                << u"de(nodeadkeys),us@0|pc105|grp:alt_shift_toggle"_s;
        QTest::newRow("unquoted and single quotes")
            << "  XKBLAYOUT=fr # French\nXKBVARIANT='azerty'\n#XKBLAYOUT=ru\n"_ba << u"fr(azerty)@0||"_s;
        QTest::newRow("empty layout") << "XKBLAYOUT=\"\"\n"_ba << u"us@0||"_s;
        QTest::newRow("unclosed quote") << "XKBLAYOUT=\"de\nXKBMODEL=pc105\n"_ba << u"us@0|pc105|"_s;
        QTest::newRow("no layout") << "XKBMODEL=pc105\n"_ba << QString();
        QTest::newRow("binary") << QByteArray("\0\xff=\x01\n=", 7) << QString();
    }
    void defaultKeyboard()
    {
        QFETCH(QByteArray, contents);
        QFETCH(QString, expected);
        QTemporaryDir dir;
        QFile file(dir.filePath(u"keyboard"_s));
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(contents) == contents.size());
        file.close();
        const auto source = DefaultKeyboardLayoutSource::create(file.fileName());
        QCOMPARE(source ? describe(source->layouts()) : QString(), expected);
    }

    void defaultKeyboardFollowsRewrites()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(u"keyboard"_s);
        const auto write = [&path](const QByteArray& contents) {
            QFile file(path + u".new"_s);
            // Written aside and renamed over, as tools that edit the file do.
            return file.open(QIODevice::WriteOnly) && file.write(contents) == contents.size() && file.flush()
                && (file.close(), QFile::remove(path) || !QFile::exists(path)) && QFile::rename(file.fileName(), path);
        };
        QVERIFY(write("XKBLAYOUT=us\n"_ba));
        const auto source = DefaultKeyboardLayoutSource::create(path);
        QVERIFY(source);
        QSignalSpy changed(source.get(), &KeyboardLayoutSource::changed);
        QVERIFY(write("XKBLAYOUT=us,ru\n"_ba));
        QTRY_COMPARE(describe(source->layouts()), u"us,ru@0||"_s);
        QVERIFY(write("garbage\n"_ba));
        QTest::qWait(200);
        QCOMPARE(describe(source->layouts()), u"us,ru@0||"_s);
        QCOMPARE(changed.count(), 1);
    }

    void gnomeSettings()
    {
        // The input-sources keys alone, in a schema folder of the test's own, kept in memory.
        QTemporaryDir dir;
        QFile schema(dir.filePath(u"input-sources.gschema.xml"_s));
        QVERIFY(schema.open(QIODevice::WriteOnly));
        schema.write(R"xml(<schemalist><schema id="org.gnome.desktop.input-sources" path="/org/gnome/desktop/input-sources/">
            <key name="sources" type="a(ss)"><default>[]</default></key>
            <key name="mru-sources" type="a(ss)"><default>[]</default></key>
            <key name="xkb-options" type="as"><default>[]</default></key></schema></schemalist>)xml");
        schema.close();
        if (QStandardPaths::findExecutable(u"glib-compile-schemas"_s).isEmpty())
            QSKIP("no glib-compile-schemas");
        QCOMPARE(QProcess::execute(u"glib-compile-schemas"_s, { dir.path() }), 0);
        // Read once, at the first use of GSettings in this process.
        qputenv("GSETTINGS_SCHEMA_DIR", QFile::encodeName(dir.path()));
        qputenv("GSETTINGS_BACKEND", "memory");

        QVERIFY(!GnomeLayoutSource::create(u"KDE"_s));
        GSettings* settings = g_settings_new("org.gnome.desktop.input-sources");
        const auto set = [settings](const char* key, const char* value) {
            g_settings_set_value(settings, key, g_variant_new_parsed(value));
        };
        set("sources", "[('xkb', 'us'), ('ibus', 'anthy'), ('xkb', 'de+nodeadkeys')]");
        set("mru-sources", "[('xkb', 'de+nodeadkeys'), ('xkb', 'us')]");
        set("xkb-options", "['grp:alt_shift_toggle', 'ctrl:nocaps']");
        const auto source = GnomeLayoutSource::create(u"KDE"_s);
        QVERIFY(source);
        QCOMPARE(describe(source->layouts()), u"us,de(nodeadkeys)@1||grp:alt_shift_toggle,ctrl:nocaps"_s);

        QSignalSpy changed(source.get(), &KeyboardLayoutSource::changed);
        set("mru-sources", "[('xkb', 'us'), ('xkb', 'de+nodeadkeys')]");
        QTRY_COMPARE(source->layouts().current, 0);
        set("sources", "[('xkb', 'fr'), ('xkb', 'us')]");
        set("xkb-options", "@as []");
        QTRY_COMPARE(describe(source->layouts()), u"fr,us@1||"_s);
        set("sources", "[('xkb', 'no such thing')]");
        QTRY_COMPARE(describe(source->layouts()), u"us@0||"_s);
        QCOMPARE(changed.count(), 4);
        g_object_unref(settings);
    }

    void kdeService()
    {
        DBusTest::PrivateBus bus;
        if (bus.address().isEmpty())
            QSKIP("no dbus-daemon");
        QDBusConnection service = bus.connect();
        FakeKdeLayouts fake;
        fake.list = { { u"us"_s, {}, u"English (US)"_s }, { u"de"_s, u"nodeadkeys"_s, u"German"_s },
            { u"fr"_s, {}, u"French"_s } };
        fake.index = 1;
        QVERIFY(service.registerVirtualObject(u"/Layouts"_s, &fake));
        QDBusConnection client = bus.connect();
        QVERIFY(!KdeLayoutSource::create(client));
        QVERIFY(service.registerService(u"org.kde.keyboard"_s));

        const auto source = KdeLayoutSource::create(client);
        QVERIFY(source);
        QCOMPARE(source->origin(), u"kde"_s);
        QTRY_COMPARE(describe(source->layouts()), u"us,de(nodeadkeys),fr@1||"_s);

        QSignalSpy changed(source.get(), &KeyboardLayoutSource::changed);
        emitKdeSignal(service, u"layoutChanged"_s, { 2u });
        QTRY_COMPARE(changed.count(), 1);
        QCOMPARE(source->layouts().current, 2);

        // A new list with an invalid entry: the indices still count the service's positions.
        fake.list = { { u"ru"_s, {}, u"Russian"_s }, { u"no such layout"_s, {}, {} }, { u"gb"_s, {}, u"English"_s } };
        fake.index = 2;
        emitKdeSignal(service, u"layoutListChanged"_s);
        QTRY_COMPARE(describe(source->layouts()), u"ru,gb@1||"_s);

        // Garbage of every kind leaves the last good layouts.
        fake.garbage = true;
        const int callsBefore = fake.calls;
        emitKdeSignal(service, u"layoutChanged"_s, { u"one"_s });
        emitKdeSignal(service, u"layoutListChanged"_s);
        QTRY_VERIFY(fake.calls >= callsBefore + 2);
        QTest::qWait(100);
        QCOMPARE(describe(source->layouts()), u"ru,gb@1||"_s);

        // A huge index is taken as the first layout, not as a position past the end.
        emitKdeSignal(service, u"layoutChanged"_s, { 0xFFFFFFFFu });
        QTRY_COMPARE(source->layouts().current, 0);

        fake.garbage = false;
        QVERIFY(service.unregisterService(u"org.kde.keyboard"_s));
        service.unregisterObject(u"/Layouts"_s);
        emitKdeSignal(service, u"layoutChanged"_s, { 1u });
        QTest::qWait(100);
        QCOMPARE(describe(source->layouts()), u"ru,gb@0||"_s);
    }
};

QTEST_GUILESS_MAIN(TestLayoutSource)
#include "testlayoutsource.moc"
