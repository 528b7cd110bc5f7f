// ServerFilter: the servers without those that are well, if only problems are wanted, and without lost ones, if there
// are many. GUI thread. SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QSortFilterProxyModel>
#include <QStringList>
#include <QTimer>

namespace Browser {
class ServerFilter : public QSortFilterProxyModel
{
    Q_OBJECT

public:
    /// More lost servers than this are folded: a look at those that are there matters more.
    static constexpr int MaxLost = 5;

    ServerFilter();

    void setSourceModel(QAbstractItemModel* servers) override;
    /// Whether servers that are failing, lost or silent are shown alone.
    void setOnlyProblems(bool on);
    /// Whether lost servers are shown, however many there are.
    void setShowsLost(bool on);
    /// The server @p key is shown in any case. The former one is let go from the event loop, while no button of the
    /// mouse is pressed.
    void setChosen(const QString& key);
    /// The number of lost servers; 0 while they are too few to be folded.
    int folded() const { return m_lost > MaxLost ? m_lost : 0; }

Q_SIGNALS:
    void foldedChanged();

protected:
    bool filterAcceptsRow(int row, const QModelIndex& parent) const override;

private:
    void countLost();
    void letGo();

    QStringList m_chosen; ///< the last one, and former ones that are not let go yet
    bool m_onlyProblems = false;
    bool m_showsLost = false;
    int m_lost = 0;
    QTimer m_count; ///< one count for many changes
    QTimer m_letGo; ///< former ones of #m_chosen
};
} // namespace Browser
