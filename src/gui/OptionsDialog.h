#pragma once

#include "core/OptionChecks.h"
#include "core/Options.h"
#include "settings/Preferences.h"

#include <QDialog>
#include <QHash>

#include <array>
#include <functional>
#include <vector>

class QAbstractButton;
class QCheckBox;
class QComboBox;
class QFormLayout;
class QLabel;
class QLineEdit;
class QTabWidget;

namespace kestrova::app {
class Application;
}
namespace kestrova::core {
struct OptionDef;
}

namespace kestrova::gui {

class GuiHost;

// Every option of a watch setup and the program's preferences, on tabs. The dialog edits
// copies; Save runs the form checks in their fixed order, then each field's own check,
// and stops at the first failure with a message naming it. Only when everything passes
// are the options and preferences handed to the engine, in one step each.
class OptionsDialog : public QDialog
{
    Q_OBJECT
public:
    OptionsDialog(QWidget* parent, app::Application& app, GuiHost& host);
    // Edits a setup that is not in use yet (the set-up assistant's): Save leaves the
    // options in target and the preferences' texts in storeTarget, and the engine is not
    // touched.
    OptionsDialog(QWidget* parent, app::Application& app, GuiHost& host, core::Options& target,
                  QHash<QString, QString>& storeTarget);

    QTabWidget* tabs() const { return m_tabs; }
    // The result text of the last test page ("Digital Pager: Message 1 Sent").
    QString testPageResult() const;

    void sendTestPage();
    void testConnection();
    void openModemSettings();
    void accept() override;

private:
    OptionsDialog(QWidget* parent, app::Application& app, GuiHost& host, const core::Options& start,
                  core::Options* target, QHash<QString, QString>* storeTarget);

    // One field on screen and how its text reaches an option or a preference.
    struct Field
    {
        QString name;  // option name (as the registry knows it) or preference key
        QString label; // as the user reads it
        QWidget* editor = nullptr;
        std::function<QString()> read;
        std::function<void(const QString&)> write;
        const core::OptionDef* def = nullptr; // null for preferences
        bool preference = false;
    };

    // Field builders: each puts a labelled editor on the form and binds it to an option.
    QLineEdit* text(QFormLayout* form, const char* option, const QString& label, const QString& tip = {});
    QLineEdit* number(QFormLayout* form, const char* option, const QString& label, const QString& tip = {});
    QLineEdit* password(QFormLayout* form, const char* option, const QString& label);
    // The same for a secret the settings store keeps on this machine (a service's API key).
    QLineEdit* secretPreference(QFormLayout* form, const QString& option, const QString& label);
    QCheckBox* check(QFormLayout* form, const char* option, const QString& label, const QString& tip = {});
    QCheckBox* numberCheck(QFormLayout* form, const char* option, const QString& label);
    QComboBox* choice(QFormLayout* form, const char* option, const QString& label, const QStringList& items);
    void bind(const char* option, const QString& label, QWidget* editor, std::function<QString()> read,
              std::function<void(const QString&)> write);
    void bindPreference(const char* key, const QString& label, QWidget* editor, std::function<QString()> read,
                        std::function<void(const QString&)> write);

    QWidget* pagerPage();
    QWidget* emailPage();
    QWidget* pushPage();
    QWidget* mailPage();
    QWidget* connectionPage();
    QWidget* quotesPage();
    QWidget* sourcesPage();
    QWidget* serialPage();
    QWidget* programPage();

    const Field* field(const QString& name) const;
    void focusField(const Field& f);
    // What the fields show, in tab order, as the engine's checks take it; the preferences
    // of the settings store only when asked.
    QList<core::OptionText> entered(bool withPreferences) const;
    // True when the check passed; otherwise shows its message, naming the field as the
    // form labels it, and puts the focus on that field.
    bool passes(const core::OptionCheck& check);
    void loadFields();

    app::Application& m_app;
    GuiHost& m_host;
    core::Options m_options;
    core::Options* m_target = nullptr;
    QHash<QString, QString>* m_storeTarget = nullptr;
    settings::Preferences m_prefs;
    std::vector<Field> m_fields;
    std::vector<std::function<void()>> m_afterLoad; // enable states that follow the loaded values
    QTabWidget* m_tabs;
    QLabel* m_testResult = nullptr;
    // Log-ons of the quote services, edited one service at a time.
    std::array<core::ServerLogon, core::kBuiltInServers> m_logons;
    QComboBox* m_logonService = nullptr;
    QLineEdit* m_logonUser = nullptr;
    QLineEdit* m_logonPassword = nullptr;
};

} // namespace kestrova::gui
