// SearchPane: the text to search for in all servers, and what it is found in.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QLabel>
#include <QLineEdit>
#include <QTableView>
#include <QWidget>

#include "models/search_model.h"

namespace Browser {
class SearchPane : public QWidget
{
    Q_OBJECT

public:
    /// @param search must outlive this object
    explicit SearchPane(SearchModel& search, QWidget* parent = nullptr);

    QLineEdit* text() const { return m_text; }

Q_SIGNALS:
    /// The user wants to see @p hit.
    void chosen(const Browser::SearchModel::Hit& hit);

private:
    void choose(const QModelIndex& index);

    SearchModel& m_search;
    QLineEdit* m_text;
    QLabel* m_state;
    QTableView* m_hits;
};
} // namespace Browser
