#pragma once

#include <QMessageBox>
#include <QObject>
#include <QPointer>

class UpdateService;

// The alert an interactive version check shows when it found a newer release. It does
// not wait for the choice: the window thread goes on while the alert is open, and a
// second announcement replaces the first alert rather than stacking another.
class UpdateAlert : public QObject
{
    Q_OBJECT

public:
    explicit UpdateAlert(UpdateService &updates, QObject *parent = nullptr);
    ~UpdateAlert() override;

    QMessageBox *window() const { return m_box; }

private:
    void show(const QString &informativeText);

    UpdateService &m_updates;
    QPointer<QMessageBox> m_box;
};
