#pragma once

#include "core/Options.h"
#include "delivery/ModemProfiles.h"

#include <QDialog>

class QComboBox;
class QLineEdit;
class QListWidget;
class QPushButton;

namespace kestrova::gui {

class GuiHost;

// "Modem Settings" / "Non-Internet Modem Settings": the named modem profiles with their
// two init strings, and the port, flow control, dialling, speaker and retry choices of the
// modem route. It edits a copy of target; Save writes the copy back in one step (the
// caller commits target), Cancel leaves target as it was.
class ModemDialog : public QDialog
{
    Q_OBJECT
public:
    ModemDialog(QWidget* parent, GuiHost& host, core::Options& target, bool nonInternet);

    void addProfile();
    void deleteProfile();
    void accept() override;

private:
    void fillProfiles();
    void showProfile(int index);

    GuiHost& m_host;
    core::Options& m_target;
    core::Options m_copy;
    delivery::ModemProfiles m_profiles;
    QListWidget* m_list;
    QLineEdit* m_init;
    QLineEdit* m_pagerInit;
    QPushButton* m_add;
    QPushButton* m_delete;
    QComboBox* m_port;
    QComboBox* m_flow;
    QComboBox* m_dialling;
    QComboBox* m_volume;
    QComboBox* m_speaker;
    QLineEdit* m_retries;
    QLineEdit* m_retrySeconds;
};

} // namespace kestrova::gui
