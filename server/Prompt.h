#pragma once

#include "RewriteRequest.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

struct PromptSettings
{
    QString model; // left out of the request when empty
    int sampleBudget = 6000; // characters
};

// The samples that fit into `budget` characters, newest first in priority, returned in
// their original order. A newest sample longer than the whole budget is cut to fit.
QStringList samplesWithinBudget(const QStringList &examples, int budget);

// One line saying what the tone asks for; a tone we do not know is passed on as words.
QString toneDefinition(const QString &tone);

QString systemPrompt(const RewriteRequest &request, int sampleBudget);

// The streamed /chat/completions body for an OpenAI-compatible upstream.
QByteArray upstreamRequestBody(const RewriteRequest &request, const PromptSettings &settings);
