// The dialogues before, during and after an export.
// SPDX-License-Identifier: Apache-2.0
#include "exporting.h"

#include <QProgressDialog>

#include "models/texts.h"
#include "saving.h"

namespace Browser {
namespace {
struct Texts
{
    Q_DECLARE_TR_FUNCTIONS(Browser::Export)
};

// How it went, once it has ended.
void tell(QWidget* parent, const QString& title, const Export& it, const QString& folder)
{
    if (!it.problem().isEmpty()) {
        showMessage(parent, QMessageBox::Warning, title, it.problem());
        return;
    }
    QString text = Texts::tr("%1 of %2 pictures were written to %3.").arg(it.written()).arg(it.total()).arg(folder);
    if (it.missingLists() > 0)
        text += QLatin1Char('\n') + Texts::tr("Lists that the server did not send: %1").arg(it.missingLists());
    const bool isComplete = it.written() == it.total() && it.missingLists() == 0;
    showMessage(parent, isComplete ? QMessageBox::Information : QMessageBox::Warning, title, text);
}

// @return what is wrong, for the user; empty if nothing is
QString start(QWidget* parent, Session& session, const Export::Source& source, const QString& title,
              const QString& folder)
{
    auto work = std::make_unique<Export>(session.requests(), source, folder, session.pictureFolder());
    if (!work->start())
        return work->problem();
    auto* const dialog = new QProgressDialog(Texts::tr("Loading the lists…"), Texts::tr("&Cancel"), 0, 0, parent);
    dialog->setObjectName(QStringLiteral("export"));
    dialog->setWindowTitle(title);
    dialog->setAutoClose(false);
    dialog->setAutoReset(false);
    dialog->setMinimumDuration(0);
    Export* const it = work.release();
    it->setParent(dialog);
    QObject::connect(dialog, &QProgressDialog::canceled, dialog, &QObject::deleteLater);
    QObject::connect(it, &Export::progress, dialog, [dialog](int done, int total) {
        dialog->setMaximum(total);
        dialog->setValue(done);
        dialog->setLabelText(Texts::tr("Pictures: %1 of %2").arg(done).arg(total));
    });
    QObject::connect(it, &Export::finished, dialog, [dialog, parent, it, title, folder] {
        tell(parent, title, *it, folder);
        dialog->deleteLater();
    });
    dialog->show();
    return {};
}
} // namespace

void exportPages(QWidget* parent, Session& session, const Export::Source& source)
{
    const QString server = session.servers().nameOf(source.server.key);
    const QString title = Texts::tr("Export as pages");
    if (session.requests().isQuiet()) {
        showMessage(parent, QMessageBox::Information, title,
                    Texts::tr("In quiet mode nothing is requested ahead. Switch it off for the export."));
        return;
    }
    const QString name = fileNameOf(source.library.isEmpty() ? server : server + QLatin1Char(' ') + source.libraryName);
    saveAs(parent, title, name, {}, [parent, &session, source, title](const QString& folder) {
        return start(parent, session, source, title, folder);
    });
}
} // namespace Browser
