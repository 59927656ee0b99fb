// Faults: versions compared as text or overflowing, and a release record taken in a shape it does not have.
#include "VersionData.h"

#include <QTest>

using namespace Qt::StringLiterals;

class TestVersionData : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void comparison_data();
    void comparison();
    void decoding_data();
    void decoding();
};

void TestVersionData::comparison_data()
{
    QTest::addColumn<QString>("remote");
    QTest::addColumn<QString>("current");
    QTest::addColumn<bool>("newer");

    QTest::newRow("numeric, not textual") << u"2.0"_s << u"10.0"_s << false;
    QTest::newRow("missing place counts as zero") << u"1.2"_s << u"1.2.0"_s << false;
    QTest::newRow("extra non-zero place") << u"1.2.0.1"_s << u"1.2"_s << true;
    QTest::newRow("shorter but greater") << u"2"_s << u"1.9.9"_s << true;
    QTest::newRow("suffix drops the piece") << u"1.2.3-beta"_s << u"1.2"_s << false;
    QTest::newRow("suffix piece dropped, next moves up") << u"1.x.3"_s << u"1.2"_s << true;
    QTest::newRow("empty pieces dropped") << u"1..3"_s << u"1.2"_s << true;
    QTest::newRow("explicit plus sign") << u"+2"_s << u"1"_s << true;
    QTest::newRow("negative piece") << u"1.-1"_s << u"1.0"_s << false;
    QTest::newRow("blank inside a piece drops it") << u" 2.0"_s << u"1.0"_s << false;
    QTest::newRow("beyond 64 bits drops the piece") << u"99999999999999999999.1"_s << u"1.0"_s << false;
    QTest::newRow("largest 64-bit piece") << u"9223372036854775807"_s << u"1"_s << true;
    QTest::newRow("places past 32 bits") << u"1.4294967297"_s << u"1.4294967296"_s << true;
    QTest::newRow("nothing numeric") << u"latest"_s << u"0.0.1"_s << false;
    QTest::newRow("empty remote") << QString() << u"0"_s << false;
}

void TestVersionData::comparison()
{
    QFETCH(QString, remote);
    QFETCH(QString, current);
    QTEST(isNewerVersion(remote, current), "newer");
}

void TestVersionData::decoding_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<bool>("readable");
    QTest::addColumn<bool>("hasData");
    QTest::addColumn<QString>("reasonMentions"); // for unreadable replies

    const QByteArray record = R"({"current_version":"1.4.2","download_url":"https://example.org/t",
        "release_notes":"Fixes","force_update":false,"minimum_supported_version":"1.0.0"})";

    const auto readable = [](const char *name, const QByteArray &body, bool hasData) {
        QTest::newRow(name) << body << true << hasData << QString();
    };
    const auto unreadable = [](const char *name, const QByteArray &body, const QString &mentions) {
        QTest::newRow(name) << body << false << false << mentions;
    };
    readable("complete", R"({"success":true,"data":)" + record + "}", true);
    readable("unknown members, any order",
        R"({"extra":[1,2],"data":)" + record + R"(,"error":"none","success":true})", true);
    readable("data null", R"({"success":true,"data":null,"error":null})", false);
    readable("data absent", R"({"success":false,"error":"down"})", false);
    const auto changed = [&record](const QByteArray &from, const QByteArray &to) {
        return R"({"success":true,"data":)" + QByteArray(record).replace(from, to) + "}";
    };
    unreadable("record lacks minimum_supported_version",
        changed(R"(,"minimum_supported_version":"1.0.0")", ""), u"minimum_supported_version"_s);
    unreadable("force_update as text", changed("false", R"("no")"), u"force_update"_s);
    unreadable("version as number", changed(R"("1.4.2")", "2"), u"current_version"_s);
    unreadable("success missing", R"({"data":null})", u"success"_s);
    unreadable("success as text", R"({"success":"true"})", u"success"_s);
    unreadable("error as number", R"({"success":true,"error":5})", u"error"_s);
    unreadable("data as text", R"({"success":true,"data":"1.2"})", u"data"_s);
    unreadable("not JSON", "<html>502 Bad Gateway</html>", u"JSON"_s);
    unreadable("array", "[]", u"object"_s);
    unreadable("empty body", QByteArray(), u"JSON"_s);
}

void TestVersionData::decoding()
{
    QFETCH(QByteArray, body);
    QFETCH(bool, readable);
    QFETCH(bool, hasData);
    QFETCH(QString, reasonMentions);

    QString why;
    const auto response = VersionResponse::decode(body, &why);
    QCOMPARE(response.has_value(), readable);
    if (!readable) {
        QVERIFY2(why.contains(reasonMentions), qPrintable(why));
        return;
    }
    QCOMPARE(response->data.has_value(), hasData);
    if (hasData) {
        QCOMPARE(response->data->currentVersion, u"1.4.2"_s);
        QCOMPARE(response->data->downloadUrl, u"https://example.org/t"_s);
        QCOMPARE(response->data->releaseNotes, u"Fixes"_s);
        QCOMPARE(response->data->minimumSupportedVersion, u"1.0.0"_s);
    }
}

QTEST_APPLESS_MAIN(TestVersionData)
#include "TestVersionData.moc"
