#pragma once

#include "Prompt.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <optional>

// A rewrite as Tessary asks for it: its writing samples, the tone and the text.
struct RewriteRequest
{
    QStringList examples; // in the client's order, the newest last
    QString tone;
    QString text;
    QString instruction; // the user's own words on what to do, besides the tone; often none
};

struct RequestParse
{
    std::optional<RewriteRequest> request;
    QString error; // why the body was refused, for the client
};

// Reads a completion request body: {"stream", "examples", "tone", "messages"}, and an
// optional "instruction".
// The text is the last user message, without the instruction when it starts with it.
RequestParse parseRewriteRequest(const QByteArray &body);
