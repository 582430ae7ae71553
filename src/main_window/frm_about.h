#pragma once

#include "core/failure_log.h"

#include <QDialog>

class QFrame;
class QLabel;
class QPushButton;

namespace pw {

struct AppContext;

// "About Pagewright 3.1": the product, the support address and the web site, both of which
// open through the desktop when clicked. A new dialog at every opening.
class frmAbout : public QDialog {
    Q_OBJECT
public:
    explicit frmAbout(AppContext &context, QWidget *parent = nullptr);

    QLabel *Picture1;
    QLabel *Picture2;
    QLabel *lblProductName;
    QLabel *lblSupportEmail;
    QLabel *lblWebsite;
    QFrame *pnldown;
    QPushButton *cmdQuit;

    void lblSupportEmail_Click();
    void lblWebsite_Click();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void Form_Load();

    AppContext &context_;
};

// The web site through the desktop; shared by the Help menu and the About dialog.
void OpenWebsite(AppContext &context, const char *procedure, const Unit &unit);

} // namespace pw
