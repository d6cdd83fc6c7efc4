#include "devserver/StatementCache.h"

namespace stowline::devserver {

KeptStatement::KeptStatement(StatementCache& cache, const std::string& sql)
    : place_(cache.waiting_[sql]), statement_(std::move(place_))
{
    if (!statement_)
        statement_ = std::make_unique<SQLite::Statement>(cache.database_, sql);
}

KeptStatement::~KeptStatement()
{
    try {
        (void)statement_->tryReset(); // tells the fault of its last step again, which is known
        statement_->clearBindings();
        place_ = std::move(statement_);
    } catch (const SQLite::Exception&) { // NOLINT: it is compiled anew next time
    }
}

} // namespace stowline::devserver
