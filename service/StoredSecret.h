#pragma once

#include <QObject>
#include <QString>
#include <QVariant>

#include <functional>
#include <optional>

class KeyStore;

// One key or token of the settings store. It lives in the desktop keyring when one
// answers and in the settings file only where none does; a key that the file holds from
// a start without a keyring moves into the keyring once, as soon as one answers.
class StoredSecret : public QObject
{
    Q_OBJECT

public:
    // Stores a value under the secret's name in the settings file; an invalid one removes it.
    using FileWriter = std::function<void(const QVariant &value)>;

    // `fileValue` is what the settings file holds now, if anything: an entry there (even
    // an empty one, a cleared key) was written after anything in the keyring. Without
    // `keys`, the file is the only place and the secret is loaded at once; otherwise the
    // keyring is asked.
    StoredSecret(const QString &name, const std::optional<QString> &fileValue, KeyStore *keys,
        FileWriter writeFile, QObject *parent = nullptr);

    QString value() const { return m_value; }
    void assign(const QString &value);

    // Whether the keyring has answered (or was never to be asked).
    bool loaded() const { return m_place != Place::Unknown; }
    // Whether the value is kept in the settings file because no keyring answers.
    bool inSettingsFile() const { return m_place == Place::File; }

    // False while a value is on its way to the keyring.
    bool saved() const;

    // Called before the program ends: a value the keyring has not yet confirmed goes to
    // the settings file, from where the next start moves it into the keyring.
    void keepUnconfirmedInFile();

Q_SIGNALS:
    // Once, when the keyring has answered.
    void loadedChanged(bool valueChanged);
    void inSettingsFileChanged();
    void savedChanged();

private:
    enum class Place { Unknown, Keyring, File };

    void answered(bool keyring, const QString &keyringValue);
    void writeToKeyring(const QString &value);
    void written(bool stored);
    void fallBackToFile();
    void setUnconfirmed(bool unconfirmed);
    void writeFile(const QVariant &value);

    QString m_name;
    KeyStore *m_keys;
    FileWriter m_writeFile;
    Place m_place = Place::Unknown;
    QString m_value;
    bool m_assigned = false; // assigned before the keyring answered
    bool m_inFile = false; // the settings file holds an entry
    bool m_writing = false;
    std::optional<QString> m_next; // assigned while a write was under way
    bool m_unconfirmed = false;
};
