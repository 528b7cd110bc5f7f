// The controls and their explanations.
// SPDX-License-Identifier: Apache-2.0
#include "settings_dialog.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QScrollArea>
#include <QVBoxLayout>

#include "stack_options.h"

namespace Browser {
SettingsDialog::SettingsDialog(const Preferences& preferences, QWidget* parent)
    : QDialog(parent),
      m_timeout(new QDoubleSpinBox),
      m_requests(new QSpinBox),
      m_kilobytes(new QSpinBox),
      m_quiet(new QCheckBox(tr("&Quiet mode"))),
      m_groups(new QComboBox)
{
    setWindowTitle(tr("Settings"));
    setObjectName(QStringLiteral("settings"));
    m_timeout->setRange(Preferences::MinTimeout / 1000.0, Preferences::MaxTimeout / 1000.0);
    m_timeout->setDecimals(1);
    m_timeout->setSingleStep(0.5);
    m_timeout->setSuffix(tr(" s"));
    m_timeout->setValue(preferences.timeout / 1000.0);
    m_requests->setRange(0, Preferences::MaxRequests);
    m_requests->setSpecialValueText(tr("no limit"));
    m_requests->setSuffix(tr(" a second"));
    m_requests->setValue(preferences.requestsPerSecond);
    m_kilobytes->setRange(0, Preferences::MaxKilobytes);
    m_kilobytes->setSingleStep(100);
    m_kilobytes->setSpecialValueText(tr("no limit"));
    m_kilobytes->setSuffix(tr(" kB a second"));
    m_kilobytes->setValue(preferences.kilobytesPerSecond);
    m_quiet->setChecked(preferences.isQuiet);
    using CITP::citp_options;
    for (const auto groups : {citp_options::BothGroups, citp_options::OldGroup, citp_options::NewGroup})
        m_groups->addItem(Tools::addressesOf(groups).join(tr(" and ", "between two addresses")), groups);
    m_groups->setCurrentIndex(m_groups->findData(preferences.groups));

    auto* const content = new QWidget;
    auto* const form = new QFormLayout(content);
    form->setRowWrapPolicy(QFormLayout::WrapLongRows);
    add(form, QStringLiteral("timeout"), tr("&Timeout:"), m_timeout,
        tr("A request fails when the server has sent nothing of the kind for this long, twice. A longer time suits "
           "slow "
           "servers; a shorter one shows sooner that a server hangs."));
    add(form, QStringLiteral("requests"), tr("&Requests:"), m_requests,
        tr("How many requests are sent to all servers together. A limit spares servers that play a show."));
    add(form, QStringLiteral("kilobytes"), tr("&Answers:"), m_kilobytes,
        tr("How much the servers are made to answer, all together. A limit spares a network that the show shares."));
    add(form, QStringLiteral("quiet"), {}, m_quiet,
        tr("For use during a show: only what you open or look at is requested. Nothing is loaded ahead, and nothing is "
           "searched. Ctrl+M switches it in the window."));
    add(form, QStringLiteral("groups"), tr("&Groups:"), m_groups,
        tr("The multicast addresses on which servers announce themselves. Newer servers may use the second one alone. "
           "Takes effect within two seconds; servers that are known stay."));

    auto* const scroll = new QScrollArea;
    scroll->setWidget(content);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->setFocusPolicy(Qt::NoFocus);
    auto* const buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    auto* const layout = new QVBoxLayout(this);
    layout->addWidget(scroll);
    layout->addWidget(buttons);
    resize(sizeHint().expandedTo({480, 440}));
}

void SettingsDialog::add(QFormLayout* form, const QString& name, const QString& label, QWidget* control,
                         const QString& explanation)
{
    control->setObjectName(name);
    control->setToolTip(explanation);
    control->setAccessibleDescription(explanation);
    auto* const text = new QLabel(explanation);
    text->setObjectName(name + QStringLiteral("Explanation"));
    text->setWordWrap(true);
    if (label.isEmpty())
        form->addRow(control);
    else
        form->addRow(label, control);
    form->addRow(text);
}

Preferences SettingsDialog::preferences() const
{
    Preferences set;
    set.timeout = qRound(m_timeout->value() * 1000);
    set.requestsPerSecond = m_requests->value();
    set.kilobytesPerSecond = m_kilobytes->value();
    set.isQuiet = m_quiet->isChecked();
    set.groups = static_cast<CITP::citp_options::DiscoveryGroups>(m_groups->currentData().toInt());
    return set;
}
} // namespace Browser
