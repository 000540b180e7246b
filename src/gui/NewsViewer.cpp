#include "gui/NewsViewer.h"

#include "app/Application.h"
#include "gui/GuiHost.h"
#include "gui/Mnemonics.h"
#include "gui/WindowPlacement.h"
#include "news/News.h"
#include "news/NewsStories.h"
#include "support/Browser.h"

#include <QComboBox>
#include <QDate>
#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QPushButton>
#include <QSet>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace kestrova::gui {

namespace {

enum Column { Date, Time, Ticker, Headline, Source, Fresh };
constexpr int SortRole = Qt::UserRole + 1;

// Rows sort by what the cells mean: dates as dates ("mm/dd/yyyy" would sort December
// 2025 after January 2026 as text).
class StoryItem : public QTreeWidgetItem
{
public:
    using QTreeWidgetItem::QTreeWidgetItem;
    bool operator<(const QTreeWidgetItem& other) const override
    {
        const int column = treeWidget() ? treeWidget()->sortColumn() : 0;
        return data(column, SortRole).toString() < other.data(column, SortRole).toString();
    }
};

QString sortableDate(const QString& date, const QString& time)
{
    const QDate d = QDate::fromString(date.trimmed(), QStringLiteral("MM/dd/yyyy"));
    return (d.isValid() ? d.toString(Qt::ISODate) : date) + u' ' + time;
}

} // namespace

NewsViewer::NewsViewer(QWidget* parent, app::Application& app, GuiHost& host)
    : QDialog(parent, Qt::Window), m_app(app), m_host(host)
{
    setObjectName(QStringLiteral("NewsViewer"));
    setWindowTitle(tr("News"));

    m_security = new QComboBox;
    m_security->setObjectName(QStringLiteral("cboSecurity"));
    m_security->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    auto* securityLabel = new QLabel(tr("&Security:"));
    securityLabel->setBuddy(m_security);
    connect(m_security, &QComboBox::currentIndexChanged, this, &NewsViewer::applyFilter);

    m_list = new QTreeWidget;
    m_list->setObjectName(QStringLiteral("lstNews"));
    m_list->setHeaderLabels({tr("Date"), tr("Time"), tr("Ticker"), tr("Headline"), tr("Source"), tr("Fresh")});
    m_list->setRootIsDecorated(false);
    m_list->setAlternatingRowColors(true);
    m_list->setSortingEnabled(true);
    m_list->sortByColumn(Date, Qt::DescendingOrder);
    m_list->header()->setSectionResizeMode(QHeaderView::ResizeToContents);
    m_list->header()->setSectionResizeMode(Headline, QHeaderView::Stretch);
    // The room left over goes to the text worth reading, not to the last narrow column.
    m_list->header()->setStretchLastSection(false);
    m_list->installEventFilter(this);
    connect(m_list, &QTreeWidget::itemActivated, this, [this] { openSelected(); });

    m_empty = new QLabel(tr("No headlines yet. They are fetched with each update when news is turned on in the "
                            "options (Quotes and News)."));
    m_empty->setObjectName(QStringLiteral("lblEmpty"));
    m_empty->setWordWrap(true);

    m_open = new QPushButton(QIcon::fromTheme(QStringLiteral("internet-web-browser")), tr("&Open News Page"));
    m_open->setObjectName(QStringLiteral("cmdOpen"));
    connect(m_open, &QPushButton::clicked, this, &NewsViewer::openSelected);
    connect(m_list, &QTreeWidget::itemSelectionChanged, this,
            [this] { m_open->setEnabled(!m_list->selectedItems().isEmpty()); });
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    buttons->addButton(m_open, QDialogButtonBox::ActionRole);
    connect(buttons, &QDialogButtonBox::rejected, this, &NewsViewer::close);

    auto* top = new QHBoxLayout;
    top->addWidget(securityLabel);
    top->addWidget(m_security);
    top->addStretch();
    auto* main = new QVBoxLayout(this);
    main->addLayout(top);
    main->addWidget(m_list, 1);
    main->addWidget(m_empty);
    main->addWidget(buttons);

    refresh();
    // The first time, wide enough for every headline (the screen permitting).
    const QMargins m = main->contentsMargins();
    resize(std::max(fontMetrics().averageCharWidth() * 80, widthForColumns(m_list) + m.left() + m.right()),
           fontMetrics().height() * 26);
    giveMnemonics(buttons);
    rememberPlacement(this, objectName());
}

void NewsViewer::refresh()
{
    const QString keep = m_security->currentData().toString();
    const QSignalBlocker block(m_security);
    m_list->setSortingEnabled(false);
    m_list->clear();
    QSet<QString> tickers;
    for (const auto& story : m_app.news()) {
        auto* item = new StoryItem(m_list);
        const QStringList cells{story->sDate(),    story->time(),       story->ticker(),
                                story->newsLine(), story->newsSource(), story->bNew() ? tr("New") : QString()};
        for (int c = 0; c < cells.size(); ++c) {
            item->setText(c, cells[c]);
            item->setData(c, SortRole, cells[c].toLower());
        }
        item->setData(Date, SortRole, sortableDate(story->sDate(), story->time()));
        item->setData(Ticker, Qt::UserRole, story->ticker());
        item->setToolTip(Headline, story->newsLine());
        if (story->bNew()) {
            // Fresh news is marked by word and weight, not by colour alone.
            QFont bold = item->font(Headline);
            bold.setBold(true);
            item->setFont(Headline, bold);
        }
        tickers.insert(story->ticker());
    }
    m_list->setSortingEnabled(true);
    m_security->clear();
    m_security->addItem(tr("All securities"), QString());
    QStringList sorted(tickers.begin(), tickers.end());
    sorted.sort(Qt::CaseInsensitive);
    for (const QString& t : sorted) {
        m_security->addItem(t, t);
    }
    m_security->setCurrentIndex(std::max(0, m_security->findData(keep)));
    applyFilter();
    m_empty->setVisible(m_app.news().Count() == 0);
    m_open->setEnabled(!m_list->selectedItems().isEmpty());
}

void NewsViewer::applyFilter()
{
    const QString ticker = m_security->currentData().toString();
    for (int i = 0; i < m_list->topLevelItemCount(); ++i) {
        QTreeWidgetItem* item = m_list->topLevelItem(i);
        item->setHidden(!ticker.isEmpty() && item->data(Ticker, Qt::UserRole).toString() != ticker);
    }
}

void NewsViewer::openSelected()
{
    const QList<QTreeWidgetItem*> selected = m_list->selectedItems();
    if (selected.isEmpty()) {
        return;
    }
    const QString url = m_app.newsPageUrl(selected.first()->data(Ticker, Qt::UserRole).toString());
    if (url.isEmpty()) {
        m_host.messageBox(tr("No news server is defined (server.dat)."), support::MsgButtons::Ok,
                          support::MsgIcon::Exclamation);
        return;
    }
    support::openInBrowser(m_host, url);
}

bool NewsViewer::eventFilter(QObject* watched, QEvent* event)
{
    // Enter in the list opens the story rather than closing the window.
    if (watched == m_list && event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent*>(event)->key();
        if (key == Qt::Key_Return || key == Qt::Key_Enter) {
            openSelected();
            return true;
        }
    }
    return QDialog::eventFilter(watched, event);
}

} // namespace kestrova::gui
