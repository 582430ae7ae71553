#include "frm_about.h"

#include "program_resources.h"

#include "core/app_context.h"
#include "core/globals.h"
#include "core/path_helpers.h"

#include <QEvent>
#include <QFrame>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace pw {

namespace {

const Unit about = Unit::formWithoutTime("frmAbout");

QLabel *link(QWidget *parent)
{
    auto *label = new QLabel(parent);
    label->setCursor(Qt::PointingHandCursor);
    label->setStyleSheet("color: #0645ad; text-decoration: underline;");
    return label;
}

} // namespace

void OpenWebsite(AppContext &context, const char *procedure, const Unit &unit)
{
    FailureTail pwTail{procedure, unit};
    guarded(pwTail, [&] {
        PW_STEP;
        context.ui.ShellOpenFile("open", TrimNull(PAGEWRIGHT_WEBSITE));
    });
}

frmAbout::frmAbout(AppContext &context, QWidget *parent)
    : QDialog(parent), Picture1(new QLabel(this)), Picture2(new QLabel(this)),
      lblProductName(new QLabel(this)), lblSupportEmail(link(this)), lblWebsite(link(this)),
      pnldown(new QFrame(this)), cmdQuit(new QPushButton("&OK", pnldown)), context_(context)
{
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    const QIcon icon = ProgramIcon();
    Picture1->setPixmap(icon.pixmap(64, 64));
    Picture2->setPixmap(icon.pixmap(24, 24));
    QFont big = lblProductName->font();
    big.setPointSizeF(big.pointSizeF() * 1.6);
    big.setBold(true);
    lblProductName->setFont(big);
    lblSupportEmail->installEventFilter(this);
    lblWebsite->installEventFilter(this);

    auto *texts = new QVBoxLayout;
    texts->addWidget(lblProductName);
    texts->addWidget(lblSupportEmail);
    texts->addWidget(lblWebsite);
    auto *top = new QHBoxLayout;
    top->addWidget(Picture1, 0, Qt::AlignTop);
    top->addLayout(texts, 1);
    pnldown->setFrameShape(QFrame::StyledPanel);
    auto *bottom = new QHBoxLayout(pnldown);
    bottom->addWidget(Picture2);
    bottom->addStretch();
    bottom->addWidget(cmdQuit);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(top);
    layout->addWidget(pnldown);
    connect(cmdQuit, &QPushButton::clicked, this, &QDialog::accept);
    Form_Load();
}

void frmAbout::Form_Load()
{
    PW_PROCEDURE("Form_Load", about);
    guarded(pwTail, [&] {
        PW_STEP;
        lblProductName->setText(AppTitle);
        setWindowTitle(QString("About ") + AppTitle);
        lblSupportEmail->setText(QString("Support at: ") + PAGEWRIGHT_SUPPORT);
        lblWebsite->setText(QString("Website:") + PAGEWRIGHT_WEBSITE);
    });
}

void frmAbout::lblSupportEmail_Click()
{
    PW_PROCEDURE("lblSupportEmail_Click", about);
    guarded(pwTail, [&] {
        PW_STEP;
        context_.ui.ShellOpenFile("open",
                                  QString("mailto:") + PAGEWRIGHT_SUPPORT + "?subject=" + AppTitle);
    });
}

void frmAbout::lblWebsite_Click()
{
    OpenWebsite(context_, "lblWebsite_Click", about);
}

bool frmAbout::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::MouseButtonRelease) {
        if (watched == lblSupportEmail)
            lblSupportEmail_Click();
        else if (watched == lblWebsite)
            lblWebsite_Click();
    }
    return QDialog::eventFilter(watched, event);
}

} // namespace pw
