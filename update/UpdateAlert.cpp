#include "UpdateAlert.h"

#include "UpdateService.h"

#include <QMessageBox>
#include <QPushButton>

using namespace Qt::StringLiterals;

UpdateAlert::UpdateAlert(UpdateService &updates, QObject *parent)
    : QObject(parent)
    , m_updates(updates)
{
    connect(&updates, &UpdateService::updateAlertRequested, this, &UpdateAlert::show);
}

UpdateAlert::~UpdateAlert()
{
    delete m_box;
}

void UpdateAlert::show(const QString &informativeText)
{
    delete m_box;
    auto *box = new QMessageBox;
    m_box = box;
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setIcon(QMessageBox::Information);
    box->setWindowTitle(u"Tessary"_s);
    box->setText(u"Update Available"_s);
    box->setInformativeText(informativeText);
    QPushButton *download = box->addButton(u"Download"_s, QMessageBox::AcceptRole);
    QPushButton *later = box->addButton(u"Later"_s, QMessageBox::RejectRole);
    // Skipping stores nothing: the next check the user asks for offers the release again.
    box->addButton(u"Skip This Version"_s, QMessageBox::RejectRole);
    box->setDefaultButton(download);
    box->setEscapeButton(later);
    connect(box, &QMessageBox::buttonClicked, this, [this, download](QAbstractButton *button) {
        if (button == download)
            m_updates.openDownloadURL();
    });
    box->show();
    box->raise();
    box->activateWindow();
}
