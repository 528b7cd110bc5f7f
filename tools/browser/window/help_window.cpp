// The pages of the guide and the links between them.
// SPDX-License-Identifier: Apache-2.0
#include "help_window.h"

#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QShortcut>

namespace Browser {
QString guideFolder(const QString& programFolder)
{
    return QDir::cleanPath(programFolder + QStringLiteral("/../share/citp/guide"));
}

HelpWindow::HelpWindow(const QString& folder, QWidget* parent) : QTextBrowser(parent)
{
    setWindowFlag(Qt::Window);
    setAttribute(Qt::WA_DeleteOnClose);
    setObjectName(QStringLiteral("help"));
    setWindowTitle(tr("Guide of the CITP Browser"));
    setAccessibleName(windowTitle());
    // QTextBrowser itself would leave the page for an error when a link leads to a file that is not installed.
    setOpenLinks(false);
    setTextInteractionFlags(Qt::TextBrowserInteraction);
    connect(this, &QTextBrowser::anchorClicked, this, &HelpWindow::open);
    const auto onKey = [this](const QKeySequence& keys, auto action) {
        connect(new QShortcut(keys, this), &QShortcut::activated, this, action);
    };
    onKey(QKeySequence::Back, &QTextBrowser::backward);
    onKey(Qt::Key_Escape, &QWidget::close);
    resize(760, 600);
    const QString page = folder + QStringLiteral("/browser.md");
    if (QFileInfo::exists(page))
        setSource(QUrl::fromLocalFile(page), QTextDocument::MarkdownResource);
    else
        setPlainText(tr("The guide is not installed: there is no %1.").arg(page));
}

void HelpWindow::open(const QUrl& link)
{
    const QUrl target = source().resolved(link);
    if (!target.isLocalFile())
        QDesktopServices::openUrl(target);
    else if (QFileInfo::exists(target.toLocalFile()))
        setSource(target, QTextDocument::MarkdownResource);
}
} // namespace Browser
