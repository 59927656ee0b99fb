// Faults: a blank or trimmed sample stored, stored samples replaced, a second completion, no wait
// before it, a model step shown when a usable service is chosen already, a stale hint.
#include "OnboardingModel.h"
#include "StorageManager.h"

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
    // as typed, added to the samples stored before (never replacing them).
    void finish_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("canFinish");
        QTest::addColumn<QStringList>("stored");

        const QStringList before { u"old one"_s, u"old two"_s };
        QTest::newRow("blanks around are kept")
            << u"  hi\t "_s << true << before + QStringList { u"  hi\t "_s };
        QTest::newRow("empty") << QString() << false << before;
        QTest::newRow("spaces and tabs") << u" \t  \t"_s << false << before;
        QTest::newRow("no-break and ideographic spaces") << u"\u00a0\u3000\u2003 "_s << false << before;
        QTest::newRow("line breaks are not blanks")
            << u"\n\n"_s << true << before + QStringList { u"\n\n"_s };
        QTest::newRow("line break among blanks")
            << u" \t\r\n "_s << true << before + QStringList { u" \t\r\n "_s };
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

    // completed() comes once, a while after the first press, however often the user
    // presses while the last page shows.
    void completion()
    {
        using namespace std::chrono_literals;
        StorageManager storage(newPath(), QString());
        OnboardingModel model(storage, 200ms);
        model.advance();
        model.setSampleText(u"first"_s);
        QSignalSpy completed(&model, &OnboardingModel::completed);
        model.finish();
        model.setSampleText(u"second"_s);
        model.finish();
        QCOMPARE(model.stepCounter(), u"3 of 3"_s);
        QCOMPARE(completed.size(), 0);
        QVERIFY(completed.wait());
        // A second press's own wait would have ended well within this one.
        QVERIFY(!completed.wait(400));
        QCOMPARE(completed.size(), 1);
        QCOMPARE(storage.examples(), QStringList { u"first"_s });
        model.advance(); // the last page stays
        QCOMPARE(model.currentStep(), OnboardingModel::Step::Done);
    }

    // The model page comes after the sample only while no usable service is chosen;
    // finishing without one leaves the hint for the last page.
    void steps_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QList<OnboardingModel::Step>>("steps");
        using Step = OnboardingModel::Step;
        QTest::newRow("nothing chosen: the model page")
            << QString() << QList<Step> { Step::Welcome, Step::AddSample, Step::ChooseModel, Step::Done };
        QTest::newRow("a key stored: straight to the end")
            << u"k"_s << QList<Step> { Step::Welcome, Step::AddSample, Step::Done };
    }
    void steps()
    {
        QFETCH(QString, key);
        StorageManager storage(newPath(), u"http://127.0.0.1:1/api/v1"_s);
        storage.setApiKey(key);
        OnboardingModel model(storage, std::chrono::milliseconds(10), {});
        QSignalSpy usable(&model, &OnboardingModel::serviceUsableChanged);
        QList<OnboardingModel::Step> seen { model.currentStep() };
        while (model.currentStep() != OnboardingModel::Step::Done) {
            model.advance();
            seen.append(model.currentStep());
        }
        QTEST(seen, "steps");
        QCOMPARE(model.serviceUsable(), !key.isEmpty());
        storage.setModelBase(u"http://127.0.0.1:11434/v1"_s);
        storage.setModel(u"llama3.1"_s);
        storage.setProvider(StorageManager::Provider::LocalModel);
        QVERIFY(model.serviceUsable());
        QVERIFY(!usable.isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestOnboardingModel)
#include "TestOnboardingModel.moc"
