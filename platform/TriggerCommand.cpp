#include "TriggerCommand.h"

#include <QFileInfo>
#include <QRegularExpression>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

namespace {

QString shellQuoted(const QString &word)
{
    static const QRegularExpression plain(u"^[A-Za-z0-9_./+-]+$"_s);
    if (plain.match(word).hasMatch())
        return word;
    return u"'"_s + QString(word).replace(u"'"_s, u"'\\''"_s) + u"'"_s;
}

} // namespace

QString triggerCommand(const QString &program)
{
    const QString onPath = QStandardPaths::findExecutable(u"tessary"_s);
    const QString self = QFileInfo(program).canonicalFilePath();
    const bool sameProgram = !onPath.isEmpty() && QFileInfo(onPath).canonicalFilePath() == self;
    return (sameProgram ? u"tessary"_s : shellQuoted(self.isEmpty() ? program : self)) + u" --trigger"_s;
}
