// The history on the window thread: what an add() costs there, and the longest the
// window thread goes without its timer while a thousand rewrites are written; then how
// long a search over 10,000 kept rewrites takes, from the call to the answer. The file
// is a throw-away one; the user's own history is never touched.
#include "HistoryStore.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr int addedWhileWatched = 1000;
constexpr int searchedEntries = 10000;
constexpr double frameBudgetMs = 16.0;
constexpr double searchBudgetMs = 50.0;

HistoryEntry entry(int i)
{
    // A paragraph a person might rewrite, different in every entry.
    const QString text = u"Entry %1: thanks for the notes on the draft, I will send the revised version "
                         "to the team by Friday and we can talk it over on Monday morning."_s.arg(i);
    return { 0, text, u"Rewritten %1: "_s.arg(i) + text, u"natural"_s, u"mousepad"_s,
        QDateTime::currentDateTimeUtc().addSecs(-i) };
}

// Runs the event loop until `done` holds.
template<typename Done> void runUntil(Done done)
{
    QEventLoop loop;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (done())
            loop.quit();
    });
    poll.start(1);
    loop.exec();
}

double percentile(QList<double> values, double p)
{
    std::sort(values.begin(), values.end());
    return values.at(std::min<qsizetype>(values.size() - 1, qsizetype(p * double(values.size()))));
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;
    HistoryStore store(dir.filePath(u"history.sqlite"_s));
    int added = 0;
    QObject::connect(&store, &HistoryStore::added, [&added] { ++added; });

    // 1. Adding on the window thread, with a 1 ms timer measuring its gaps.
    QElapsedTimer sinceTick;
    double longestGapMs = 0;
    QTimer tick;
    tick.setTimerType(Qt::PreciseTimer);
    QObject::connect(&tick, &QTimer::timeout, [&] {
        longestGapMs = std::max(longestGapMs, double(sinceTick.nsecsElapsed()) / 1e6);
        sinceTick.start();
    });
    double longestAddMs = 0;
    double totalAddMs = 0;
    int queued = 0;
    // One add every 2 ms, far more often than rewrites end: a feeder that never sleeps
    // would measure how two busy threads share an overloaded CPU, not the store.
    QTimer feeder;
    QObject::connect(&feeder, &QTimer::timeout, [&] {
        if (queued == addedWhileWatched)
            return;
        QElapsedTimer call;
        call.start();
        store.add(entry(queued++));
        const double ms = double(call.nsecsElapsed()) / 1e6;
        longestAddMs = std::max(longestAddMs, ms);
        totalAddMs += ms;
    });
    sinceTick.start();
    tick.start(1);
    feeder.start(2);
    QElapsedTimer writing;
    writing.start();
    runUntil([&] { return added == addedWhileWatched; });
    tick.stop();
    feeder.stop();
    // The same loop, as long, with nothing written: what the machine's own load costs.
    const qint64 writingMs = writing.elapsed();
    const double writingGapMs = std::exchange(longestGapMs, 0.0);
    sinceTick.start();
    tick.start(1);
    QElapsedTimer idle;
    idle.start();
    runUntil([&] { return idle.elapsed() >= writingMs; });
    tick.stop();
    const double baselineGapMs = std::exchange(longestGapMs, writingGapMs);

    std::printf("add(): %.3f ms mean, %.3f ms longest on the window thread (target: under %.1f)\n",
        totalAddMs / addedWhileWatched, longestAddMs, frameBudgetMs);
    std::printf("window thread's longest gap while %d entries were written in %lld ms: %.1f ms; %.1f ms with "
                "nothing written (target: under %.1f, or at most %.1f over nothing written)\n",
        addedWhileWatched, writingMs, longestGapMs, baselineGapMs, frameBudgetMs, frameBudgetMs / 2);

    // 2. Searching 10,000 entries, from the call to the answer on the window thread.
    for (int i = addedWhileWatched; i < searchedEntries; ++i)
        store.add(entry(i));
    runUntil([&] { return added == searchedEntries; });
    QList<HistoryEntry> last;
    quint64 waitingFor = 0;
    QObject::connect(&store, &HistoryStore::found, [&](quint64 serial, const QList<HistoryEntry> &entries) {
        if (serial == waitingFor)
            last = entries;
    });
    bool worst = true;
    for (const QString &text :
        { u"Entry 9999:"_s, u"revised version"_s, u"nowhere to be found"_s, QString() }) {
        QList<double> times;
        for (int round = 0; round < 20; ++round) {
            last = { HistoryEntry { -1, {}, {}, {}, {}, {} } };
            QElapsedTimer answer;
            answer.start();
            waitingFor = store.search(text);
            runUntil([&] { return last.isEmpty() || last.first().id != -1; });
            times << double(answer.nsecsElapsed()) / 1e6;
        }
        const double p95 = percentile(times, 0.95);
        worst = worst && p95 < searchBudgetMs;
        std::printf("search \"%s\" over %d entries: %d shown, median %.1f ms, 95th percentile %.1f ms "
                    "(target: under %.1f)\n",
            qPrintable(text), searchedEntries, int(last.size()), percentile(times, 0.5), p95, searchBudgetMs);
    }
    const bool gapOk = longestGapMs < std::max(frameBudgetMs, baselineGapMs + frameBudgetMs / 2);
    const bool ok = worst && gapOk && longestAddMs < frameBudgetMs;
    std::printf("%s\n", ok ? "history: within targets" : "history: OVER TARGET");
    return ok ? 0 : 1;
}
