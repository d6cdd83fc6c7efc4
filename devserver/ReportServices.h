// The web methods of central monitoring, and of reports and e-mail.
#pragma once

#include "devserver/AccountService.h"
#include "devserver/Journal.h"
#include "devserver/MonitoringTokens.h"
#include "devserver/ServiceMethod.h"

namespace stowline::devserver {

/// The services at "/MonitoringService.asmx" and "/ReportService.asmx". What they are given must
/// outlive them.
[[nodiscard]] Service monitoringService(Journal& journal, MonitoringTokens& tokens);
[[nodiscard]] Service reportService(const AccountServiceContext& context, Journal& journal);

} // namespace stowline::devserver
