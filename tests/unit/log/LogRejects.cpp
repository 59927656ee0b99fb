// What the log must refuse at compile time. Built as it stands, every line below is the
// accepted way to write it; each REJECT_<NAME> swaps one line for a way that would let
// the user's words reach a line unhidden, and that build must fail (tests/unit/log).
#include "Log.h"

using namespace Qt::StringLiterals;

namespace {
constexpr Log::Literal tag = u"Rejects";
}

void logRejects(const QString &text, Log::Lines &lines)
{
#ifdef REJECT_STRING_AS_MESSAGE
    Log::write(u"🔧", tag, text);
#else
    Log::write(u"🔧", tag, Log::Private(text));
#endif

#ifdef REJECT_STRING_AS_PART
    Log::write(u"🔧", tag, { u"Got text: ", text, u"..." });
#else
    Log::write(u"🔧", tag, { u"Got text: ", Log::Private(text), u"..." });
#endif

#ifdef REJECT_BUILT_STRING
    Log::write(u"🔧", tag, u"Got text: "_s + text);
#else
    Log::write(u"🔧", tag, { u"Got text: ", Log::Private(text) });
#endif

#ifdef REJECT_STRING_VIEW
    Log::write(u"🔧", tag, { u"Got text: ", QStringView(text) });
#else
    Log::write(u"🔧", tag, { u"Got text: ", Log::Private(text) });
#endif

#ifdef REJECT_UNTAGGED_STRING
    Log::write(text);
#else
    Log::write(Log::Private(text));
#endif

#ifdef REJECT_PRIVATE_AS_STRING
    const QString shown = Log::Private(text);
    Log::write(u"🔧", tag, Log::Public(shown));
#else
    const Log::Private shown(text);
    Log::write(u"🔧", tag, shown);
#endif

#ifdef REJECT_PRIVATE_IN_PUBLIC
    Log::write(u"🔧", tag, Log::Public(u"Got text: "_s + Log::Private(text)));
#else
    Log::write(u"🔧", tag, { u"Got text: ", Log::Private(text) });
#endif

#ifdef REJECT_POINTER
    Log::write(u"🔧", tag, { u"Got text: ", reinterpret_cast<const char16_t *>(text.utf16()) });
#else
    Log::write(u"🔧", tag, { u"Got text: ", Log::Private(text) });
#endif

#ifdef REJECT_TAG_READ_AT_RUN_TIME
    Log::write(u"🔧", text, u"Got text");
#else
    Log::write(u"🔧", tag, u"Got text");
#endif

#ifdef REJECT_STRING_IN_GATHERED_LINES
    lines.add(u"📄", tag, { u"Processing line: ", text });
#else
    lines.add(u"📄", tag, { u"Processing line: ", Log::Private(text) });
#endif
}
