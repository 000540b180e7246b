#include "gui/PortfolioDialog.h"

#include "app/Application.h"
#include "core/PortfolioEntries.h"
#include "core/SecurityType.h"
#include "gui/GuiHost.h"
#include "gui/Mnemonics.h"
#include "gui/SecurityDialog.h"
#include "gui/WindowPlacement.h"
#include "quotes/BuiltInServers.h"
#include "support/Format.h"

#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QIcon>
#include <QKeyEvent>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QScrollBar>
#include <QStyle>
#include <QTableWidget>
#include <QVBoxLayout>

namespace kestrova::gui {

namespace {

enum Column {
    Ticker,
    Name,
    Type,
    Shares,
    CostBasis,
    High,
    Low,
    HighChg,
    LowChg,
    Volume,
    Pager,
    MarketOnly,
    News,
    Server
};

QIcon themeIcon(const char* name, QStyle* style, QStyle::StandardPixmap fallback)
{
    return QIcon::fromTheme(QString::fromLatin1(name), style->standardIcon(fallback));
}

QString yes(qint16 flag)
{
    return flag ? QObject::tr("Yes") : QString();
}

} // namespace

PortfolioDialog::PortfolioDialog(QWidget* parent, app::Application& app, GuiHost& host)
    : QDialog(parent), m_app(app), m_host(host), m_table(app.state().portfolio)
{
    setObjectName(QStringLiteral("PortfolioDialog"));
    setWindowTitle(tr("Portfolio"));

    m_list = new QTableWidget(0, Server + 1);
    m_list->setObjectName(QStringLiteral("lstPortfolio"));
    m_list->setHorizontalHeaderLabels({tr("Ticker"), tr("Name"), tr("Type"), tr("Shares"), tr("Cost Basis"), tr("High"),
                                       tr("Low"), tr("High %"), tr("Low %"), tr("Volume"), tr("Pager"),
                                       tr("Market Only"), tr("News"), tr("Quote Server")});
    m_list->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_list->setAlternatingRowColors(true);
    m_list->verticalHeader()->setVisible(false);
    m_list->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    m_list->horizontalHeader()->setStretchLastSection(true);
    m_list->setTabKeyNavigation(false);
    m_list->installEventFilter(this);
    connect(m_list, &QTableWidget::cellDoubleClicked, this, [this] { editEntry(); });

    QStyle* st = style();
    m_add = new QPushButton(QIcon::fromTheme(QStringLiteral("list-add")), tr("&Add..."));
    m_add->setObjectName(QStringLiteral("cmdAdd"));
    m_edit = new QPushButton(QIcon::fromTheme(QStringLiteral("document-edit")), tr("&Edit..."));
    m_edit->setObjectName(QStringLiteral("cmdEdit"));
    m_remove = new QPushButton(themeIcon("list-remove", st, QStyle::SP_TrashIcon), tr("&Remove"));
    m_remove->setObjectName(QStringLiteral("cmdRemove"));
    m_up = new QPushButton(themeIcon("go-up", st, QStyle::SP_ArrowUp), tr("Move &Up"));
    m_up->setObjectName(QStringLiteral("cmdUp"));
    m_down = new QPushButton(themeIcon("go-down", st, QStyle::SP_ArrowDown), tr("Move &Down"));
    m_down->setObjectName(QStringLiteral("cmdDown"));
    for (QPushButton* b : {m_add, m_edit, m_remove, m_up, m_down}) {
        b->setAutoDefault(false);
    }
    connect(m_add, &QPushButton::clicked, this, &PortfolioDialog::addEntry);
    connect(m_edit, &QPushButton::clicked, this, &PortfolioDialog::editEntry);
    connect(m_remove, &QPushButton::clicked, this, &PortfolioDialog::removeEntry);
    connect(m_up, &QPushButton::clicked, this, [this] { moveEntry(-1); });
    connect(m_down, &QPushButton::clicked, this, [this] { moveEntry(1); });

    m_count = new QLabel;
    m_count->setObjectName(QStringLiteral("lblCount"));

    auto* side = new QVBoxLayout;
    for (QPushButton* b : {m_add, m_edit, m_remove}) {
        side->addWidget(b);
    }
    side->addSpacing(fontMetrics().height());
    side->addWidget(m_up);
    side->addWidget(m_down);
    side->addStretch();
    side->addWidget(m_count);

    auto* top = new QHBoxLayout;
    top->addWidget(m_list, 1);
    top->addLayout(side);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Save | QDialogButtonBox::Cancel);
    buttons->button(QDialogButtonBox::Save)->setObjectName(QStringLiteral("cmdSave"));
    buttons->button(QDialogButtonBox::Cancel)->setObjectName(QStringLiteral("cmdCancel"));
    connect(buttons, &QDialogButtonBox::accepted, this, &PortfolioDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &PortfolioDialog::reject);

    auto* main = new QVBoxLayout(this);
    main->addLayout(top, 1);
    main->addWidget(buttons);

    connect(m_list, &QTableWidget::itemSelectionChanged, this, &PortfolioDialog::updateButtons);
    refresh(m_table.count > 0 ? 0 : -1);
    m_list->setFocus();
    // Wide enough for every column of the entries, tall enough for a screenful of them.
    m_list->resizeColumnsToContents();
    const int listWidth = m_list->horizontalHeader()->length() + m_list->verticalScrollBar()->sizeHint().width() +
                          2 * m_list->frameWidth();
    QSize want(listWidth + side->sizeHint().width() + fontMetrics().averageCharWidth() * 6,
               fontMetrics().height() * 26);
    if (const QScreen* screen = this->screen()) {
        want = want.boundedTo(screen->availableSize() * 0.9);
    }
    resize(want.expandedTo(sizeHint()));
    giveMnemonics(buttons);
    rememberPlacement(this, objectName());
}

int PortfolioDialog::currentSlot() const
{
    const QList<QTableWidgetSelectionRange> ranges = m_list->selectedRanges();
    return ranges.isEmpty() ? -1 : ranges.first().topRow();
}

void PortfolioDialog::refresh(int selectSlot)
{
    {
        const QSignalBlocker block(m_list);
        const quotes::BuiltInServers servers;
        m_list->setRowCount(m_table.count);
        for (int row = 0; row < m_table.count; ++row) {
            const core::PortfolioRecord& r = m_table.records[static_cast<size_t>(row)];
            const QStringList cells{
                r.ticker.trimmed(),
                r.name,
                core::securityTypeName(r.effectiveType()),
                r.shares == 0 ? QString() : support::singleToText(r.shares),
                r.costBasis == support::Currency() ? QString()
                                                   : support::formatNumber(r.costBasis.toDouble(), u"#,##0.00##"),
                core::priceLimitText(r.highLimit, r.digits),
                core::priceLimitText(r.lowLimit, r.digits),
                core::changeLimitText(r.highChgLimit),
                core::changeLimitText(r.lowChgLimit),
                core::volumeLimitText(r.volumeLimit),
                yes(r.toPager),
                yes(r.marketOnly),
                yes(r.news),
                r.server >= 0 && r.server < quotes::BuiltInServers::kCount ? servers.at(r.server).name : QString(),
            };
            for (int col = 0; col < cells.size(); ++col) {
                auto* item = new QTableWidgetItem(cells[col]);
                if (col >= Shares && col <= Volume) {
                    item->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
                }
                m_list->setItem(row, col, item);
            }
        }
        if (selectSlot >= 0 && selectSlot < m_table.count) {
            m_list->selectRow(selectSlot);
            m_list->setCurrentCell(selectSlot, 0);
        } else {
            m_list->clearSelection();
        }
    }
    m_count->setText(tr("%1 of %2 entries").arg(m_table.count).arg(core::PortfolioTable::kMaxInUse));
    updateButtons();
}

void PortfolioDialog::updateButtons()
{
    const int slot = currentSlot();
    m_edit->setEnabled(slot >= 0);
    m_remove->setEnabled(slot >= 0);
    m_up->setEnabled(slot > 0);
    m_down->setEnabled(slot >= 0 && slot + 1 < m_table.count);
}

bool PortfolioDialog::eventFilter(QObject* watched, QEvent* event)
{
    // In the list, Enter opens the entry instead of saving the whole dialog.
    if (watched == m_list && event->type() == QEvent::KeyPress) {
        switch (static_cast<QKeyEvent*>(event)->key()) {
        case Qt::Key_Return:
        case Qt::Key_Enter:
            editEntry();
            return true;
        case Qt::Key_Insert:
            addEntry();
            return true;
        case Qt::Key_Delete:
            removeEntry();
            return true;
        default:
            break;
        }
    }
    return QDialog::eventFilter(watched, event);
}

void PortfolioDialog::addEntry()
{
    if (const QString refusal = core::canAddEntry(m_table); !refusal.isEmpty()) {
        m_host.messageBox(refusal, support::MsgButtons::Ok, support::MsgIcon::Exclamation);
        return;
    }
    SecurityDialog form(this, m_app, m_host, m_table, -1);
    if (form.exec() == QDialog::Accepted) {
        refresh(form.slot());
    }
}

void PortfolioDialog::editEntry()
{
    const int slot = currentSlot();
    if (slot < 0) {
        return;
    }
    SecurityDialog form(this, m_app, m_host, m_table, slot);
    if (form.exec() == QDialog::Accepted) {
        refresh(slot);
    }
}

void PortfolioDialog::removeEntry()
{
    const int slot = currentSlot();
    if (slot < 0) {
        return;
    }
    core::removeEntry(m_table, slot);
    refresh(std::min<int>(slot, m_table.count - 1));
}

void PortfolioDialog::moveEntry(int step)
{
    const int slot = currentSlot();
    if (core::moveEntry(m_table, slot, step)) {
        refresh(slot + step);
    }
}

void PortfolioDialog::accept()
{
    m_app.applyPortfolio(m_table);
    QDialog::accept();
}

} // namespace kestrova::gui
