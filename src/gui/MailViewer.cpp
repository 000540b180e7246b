#include "gui/MailViewer.h"

#include "app/Application.h"
#include "gui/Mnemonics.h"
#include "gui/WindowPlacement.h"
#include "support/Format.h"

#include <QDialogButtonBox>
#include <QFontDatabase>
#include <QHeaderView>
#include <QLabel>
#include <QPlainTextEdit>
#include <QSplitter>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace kestrova::gui {

namespace {

enum Column { Number, Date, From, Subject, Size, Fresh };

class MailItem : public QTreeWidgetItem
{
public:
    using QTreeWidgetItem::QTreeWidgetItem;
    bool operator<(const QTreeWidgetItem& other) const override
    {
        const int column = treeWidget() ? treeWidget()->sortColumn() : 0;
        if (column == Number || column == Size) {
            return data(column, Qt::UserRole).toLongLong() < other.data(column, Qt::UserRole).toLongLong();
        }
        return QTreeWidgetItem::operator<(other);
    }
};

} // namespace

MailViewer::MailViewer(QWidget* parent, app::Application& app) : QDialog(parent, Qt::Window), m_app(app)
{
    setObjectName(QStringLiteral("MailViewer"));
    setWindowTitle(tr("Mail"));

    m_summary = new QLabel;
    m_summary->setObjectName(QStringLiteral("lblSummary"));
    m_list = new QTreeWidget;
    m_list->setObjectName(QStringLiteral("lstMail"));
    m_list->setHeaderLabels({tr("#"), tr("Date"), tr("From"), tr("Subject"), tr("Size"), tr("New")});
    m_list->setRootIsDecorated(false);
    m_list->setAlternatingRowColors(true);
    m_list->setSortingEnabled(true);
    m_list->sortByColumn(Number, Qt::AscendingOrder);
    m_list->header()->setSectionResizeMode(QHeaderView::ResizeToContents);
    m_list->header()->setSectionResizeMode(Subject, QHeaderView::Stretch);
    // The room left over goes to the text worth reading, not to the last narrow column.
    m_list->header()->setStretchLastSection(false);
    connect(m_list, &QTreeWidget::itemSelectionChanged, this, &MailViewer::showSelected);

    m_message = new QPlainTextEdit;
    m_message->setObjectName(QStringLiteral("txtMessage"));
    m_message->setReadOnly(true);
    m_message->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));

    auto* split = new QSplitter(Qt::Vertical);
    split->addWidget(m_list);
    split->addWidget(m_message);
    split->setStretchFactor(0, 1);
    split->setStretchFactor(1, 2);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    connect(buttons, &QDialogButtonBox::rejected, this, &MailViewer::close);

    auto* main = new QVBoxLayout(this);
    main->addWidget(m_summary);
    main->addWidget(split, 1);
    main->addWidget(buttons);

    refresh();
    // The first time, wide enough for every column's contents (the screen permitting).
    const QMargins m = main->contentsMargins();
    resize(std::max(fontMetrics().averageCharWidth() * 80, widthForColumns(m_list) + m.left() + m.right()),
           fontMetrics().height() * 30);
    giveMnemonics(buttons);
    rememberPlacement(this, objectName());
}

void MailViewer::refresh()
{
    const core::MailBox& box = m_app.state().mailBox;
    const int count = std::clamp<int>(box.messageCount, 0, core::MailBox::kMaxRecords);
    m_list->setSortingEnabled(false);
    m_list->clear();
    int fresh = 0;
    for (int n = 1; n <= count; ++n) {
        const core::MailRecord& r = box.records[static_cast<size_t>(n)];
        auto* item = new MailItem(m_list);
        item->setText(Number, QString::number(n));
        item->setData(Number, Qt::UserRole, n);
        item->setText(Date, r.date.trimmed());
        item->setText(From, r.sender);
        item->setText(Subject, r.subject);
        item->setText(Size,
                      support::formatNumber(static_cast<double>(r.size) / 1024.0, u"#,##0.0") + QStringLiteral(" KB"));
        item->setData(Size, Qt::UserRole, r.size);
        item->setTextAlignment(Size, Qt::AlignRight | Qt::AlignVCenter);
        // New mail is marked by word and weight, not by colour alone.
        item->setText(Fresh, r.isNew ? tr("New") : QString());
        if (r.isNew) {
            ++fresh;
            for (int c = 0; c <= Fresh; ++c) {
                QFont f = item->font(c);
                f.setBold(true);
                item->setFont(c, f);
            }
        }
    }
    m_list->setSortingEnabled(true);
    m_summary->setText(count == 0
                           ? tr("Mailbox is empty")
                           : tr("%n message(s) waiting, %1 new since the check before", nullptr, count).arg(fresh));
    if (count > 0) {
        m_list->setCurrentItem(m_list->topLevelItem(0));
    } else {
        m_message->clear();
    }
}

void MailViewer::showSelected()
{
    const QList<QTreeWidgetItem*> selected = m_list->selectedItems();
    if (selected.isEmpty()) {
        m_message->clear();
        return;
    }
    const int n = selected.first()->data(Number, Qt::UserRole).toInt();
    const core::MailRecord& r = m_app.state().mailBox.records[static_cast<size_t>(n)];
    // A downloaded message shows whole; otherwise the headers the check read are all there is.
    m_message->setPlainText(r.text.isEmpty() ? r.headerText : r.text);
}

} // namespace kestrova::gui
