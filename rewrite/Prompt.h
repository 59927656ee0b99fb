#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QString>
#include <QStringList>

// What both programs agree on about a rewrite request. The instruction Tessary puts before
// the user's text in its one user message: the service takes the text as what follows it.
inline constexpr char16_t rewriteInstruction[] = u"Rewrite this in my voice:\n\n";
// Characters of writing samples one prompt carries by default, the newest kept.
inline constexpr int defaultSampleBudget = 6000;

// The samples that fit into `budget` characters, newest first in priority, returned in
// their original order (the newest last). A newest sample longer than the whole budget
// is cut to fit.
QStringList samplesWithinBudget(const QStringList &samples, int budget);

// One line saying what the tone asks for; a tone we do not know is passed on as words.
QString toneDefinition(const QString &tone);

// `instruction`: what the user asked for this rewrite in their own words ("shorter"),
// on top of the tone; nothing is said of it when empty.
QString systemPrompt(
    const QStringList &samples, const QString &tone, int sampleBudget, const QString &instruction = {});

// The messages of a chat completion that rewrites `text` in the voice of `samples`: the
// instructions with the samples that fit into `sampleBudget` characters, then the text.
QJsonArray promptMessages(const QStringList &samples, const QString &tone, const QString &text,
    int sampleBudget, const QString &instruction = {});

// The body of a streamed /chat/completions request to an OpenAI-compatible server; the
// model is left out when empty, for servers that serve only one.
QByteArray chatCompletionBody(const QJsonArray &messages, const QString &model);
