#define G_SETTINGS_ENABLE_BACKEND
#include "GnomeKeybinding.h"

#include "TriggerCommand.h"

#include <QFileInfo>
#include <QTimer>

#include <gio/gio.h>
#include <gio/gsettingsbackend.h>
#include <memory>
#include <string_view>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

struct Unref
{
    void operator()(gpointer object) const { g_object_unref(object); }
};
using SettingsPtr = std::unique_ptr<GSettings, Unref>;

struct StrvFree
{
    void operator()(gchar **strv) const { g_strfreev(strv); }
};
using Strv = std::unique_ptr<gchar *, StrvFree>;

QString takeString(gchar *value)
{
    const QString text = QString::fromUtf8(value);
    g_free(value);
    return text;
}

// The list is the user's and may hold anything; GSettings refuses a malformed path noisily.
bool validPath(const char *path)
{
    const std::string_view p(path);
    return p.size() > 1 && p.front() == '/' && p.back() == '/' && p.find("//") == std::string_view::npos;
}

// Whatever directory it is started from: the shortcut may point at an older build or
// another prefix and still reach the running instance over the bus.
bool runsTrigger(const QString &command, const QString &program)
{
    gchar **argv = nullptr;
    if (!g_shell_parse_argv(command.toUtf8().constData(), nullptr, &argv, nullptr))
        return false;
    const Strv args(argv);
    if (g_strv_length(argv) != 2 || qstrcmp(argv[1], "--trigger") != 0)
        return false;
    const QFileInfo runs(QString::fromUtf8(argv[0]));
    return runs.fileName() == u"tessary"_s || runs.canonicalFilePath() == program;
}

} // namespace

GnomeKeybinding::GnomeKeybinding(const QString &program)
    : m_program(QFileInfo(program).canonicalFilePath())
    , m_command(triggerCommand(program))
{
    GSettingsSchemaSource *source = g_settings_schema_source_get_default();
    if (!source)
        return;
    GSettingsSchema *list = g_settings_schema_source_lookup(source, listSchema, TRUE);
    m_entrySchema = g_settings_schema_source_lookup(source, entrySchema, TRUE);
    if (!list || !m_entrySchema) {
        if (list)
            g_settings_schema_unref(list);
        if (m_entrySchema)
            g_settings_schema_unref(m_entrySchema);
        m_entrySchema = nullptr;
        return;
    }
    m_list = g_settings_new_full(list, nullptr, nullptr);
    g_settings_schema_unref(list);
    GSettingsBackend *backend = g_settings_backend_get_default();
    m_saved = qstrcmp(G_OBJECT_TYPE_NAME(backend), "GMemorySettingsBackend") != 0;
    g_object_unref(backend);
}

GnomeKeybinding::~GnomeKeybinding()
{
    if (m_list)
        g_object_unref(m_list);
    if (m_entrySchema)
        g_settings_schema_unref(m_entrySchema);
}

bool GnomeKeybinding::isBound() const
{
    if (!m_list)
        return false;
    const Strv paths(g_settings_get_strv(m_list, listKey));
    for (gchar **path = paths.get(); *path; ++path) {
        if (!validPath(*path))
            continue;
        const SettingsPtr entry(g_settings_new_full(m_entrySchema, nullptr, *path));
        if (entry && runsTrigger(takeString(g_settings_get_string(entry.get(), "command")), m_program))
            return true;
    }
    return false;
}

bool GnomeKeybinding::canAdd() const
{
    return m_list && m_saved;
}

QString GnomeKeybinding::advice() const
{
    if (canAdd())
        return u"GNOME runs Ctrl+Alt+H for Tessary once it is one of your keyboard shortcuts."_s;
    return manualAdvice(m_command);
}

void GnomeKeybinding::add(std::function<void(const QString &error)> done)
{
    const QString error = isBound() ? QString() : write();
    // The write itself goes out to dconf asynchronously; waiting for it (g_settings_sync)
    // would block the window thread on the bus.
    QTimer::singleShot(0, [done = std::move(done), error] { done(error); });
}

QString GnomeKeybinding::write() const
{
    if (!canAdd())
        return u"GNOME's keyboard settings cannot be changed from here."_s;
    const QString refused = u"GNOME's settings refused the new shortcut."_s;
    if (!g_settings_is_writable(m_list, listKey))
        return refused;
    // The entry first, then the list: the settings daemon never sees a half-made shortcut.
    const SettingsPtr entry(g_settings_new_full(m_entrySchema, nullptr, ownPath));
    if (!g_settings_set_string(entry.get(), "name", "Tessary: Rewrite as me")
        || !g_settings_set_string(entry.get(), "command", m_command.toUtf8().constData())
        || !g_settings_set_string(entry.get(), "binding", "<Control><Alt>h"))
        return refused;

    const Strv paths(g_settings_get_strv(m_list, listKey));
    if (g_strv_contains(paths.get(), ownPath))
        return {};
    const guint count = g_strv_length(paths.get());
    std::vector<const gchar *> appended(paths.get(), paths.get() + count);
    appended.push_back(ownPath);
    appended.push_back(nullptr);
    return g_settings_set_strv(m_list, listKey, appended.data()) ? QString() : refused;
}
