#include "OnboardingModel.h"
#include "StorageManager.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

class TestOnboardingModel : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    int m_stores = 0;
    QString newPath() { return m_dir.filePath(u"s%1/Tessary.conf"_s.arg(++m_stores)); }

private Q_SLOTS:
    // What finishing stores, whichever button finished: only a non-blank text, exactly
    // as typed, as the one and only sample.
    void finish_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("canFinish");
        QTest::addColumn<QStringList>("stored");

        const QStringList before { u"old one"_s, u"old two"_s };
        QTest::newRow("plain") << u"Hello there"_s << true << QStringList { u"Hello there"_s };
        QTest::newRow("blanks around are kept") << u"  hi\t "_s << true << QStringList { u"  hi\t "_s };
        QTest::newRow("empty") << QString() << false << before;
        QTest::newRow("spaces and tabs") << u" \t  \t"_s << false << before;
        QTest::newRow("no-break and ideographic spaces") << u"\u00a0\u3000\u2003 "_s << false << before;
        QTest::newRow("line breaks are not blanks") << u"\n\n"_s << true << QStringList { u"\n\n"_s };
        QTest::newRow("line break among blanks") << u" \t\r\n "_s << true << QStringList { u" \t\r\n "_s };
    }
    void finish()
    {
        QFETCH(QString, text);
        const QString path = newPath();
        {
            StorageManager storage(path, QString());
            storage.setExamples({ u"old one"_s, u"old two"_s });
            OnboardingModel model(storage);
            model.advance();
            model.setSampleText(text);
            QTEST(model.canFinish(), "canFinish");
            model.finish();
            QCOMPARE(model.currentStep(), OnboardingModel::Step::Done);
        }
        StorageManager reread(path, QString());
        QTEST(reread.examples(), "stored");
    }

    void steps()
    {
        StorageManager storage(newPath(), QString());
        OnboardingModel model(storage);
        QCOMPARE(model.countedSteps(), 2);
        QCOMPARE(model.currentStep(), OnboardingModel::Step::Welcome);
        QCOMPARE(model.stepCounter(), u"1 of 2"_s);
        model.advance();
        QCOMPARE(model.currentStep(), OnboardingModel::Step::AddSample);
        QCOMPARE(model.stepCounter(), u"2 of 2"_s);
        model.finish();
        QCOMPARE(model.stepCounter(), u"2 of 2"_s);
        model.advance(); // the last page stays
        QCOMPARE(model.currentStep(), OnboardingModel::Step::Done);
    }

    // completed() comes once, not before 1.6 s after the first press, however often
    // the user presses while the last page shows.
    void completion()
    {
        StorageManager storage(newPath(), QString());
        OnboardingModel model(storage);
        model.advance();
        model.setSampleText(u"first"_s);
        QSignalSpy completed(&model, &OnboardingModel::completed);
        QElapsedTimer clock;
        clock.start();
        model.finish();
        model.setSampleText(u"second"_s);
        model.finish();
        QVERIFY(completed.wait(5000));
        QVERIFY2(clock.elapsed() >= OnboardingModel::completionDelayMs - 20,
            qPrintable(QString::number(clock.elapsed())));
        QVERIFY(!completed.wait(2000));
        QCOMPARE(completed.size(), 1);
        QCOMPARE(storage.examples(), QStringList { u"first"_s });
    }

    void needsApiKey()
    {
        StorageManager storage(newPath(), QString());
        OnboardingModel model(storage);
        QSignalSpy changed(&model, &OnboardingModel::needsApiKeyChanged);
        QVERIFY(model.needsApiKey());
        storage.setApiKey(u"k"_s);
        QVERIFY(!model.needsApiKey());
        QCOMPARE(changed.size(), 1);
    }
};

QTEST_GUILESS_MAIN(TestOnboardingModel)
#include "TestOnboardingModel.moc"
