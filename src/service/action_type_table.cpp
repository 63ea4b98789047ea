#include "service/action_type_table.h"

#include "actions/call_rule_set/action_call_rule_set.h"
#include "actions/compute_variable/action_compute_variable.h"
#include "actions/control_service/action_control_service.h"
#include "actions/database/action_config_odbc.h"
#include "actions/database/action_odbc.h"
#include "actions/http_request/action_http_request.h"
#include "actions/net_send/action_net_send.h"
#include "actions/play_sound/action_play_sound.h"
#include "actions/post_process/action_post_process.h"
#include "actions/resolve_hostname/action_resolve_hostname.h"
#include "actions/send_mail/action_send_mail.h"
#include "actions/send_serial/action_send_serial.h"
#include "actions/send_syslog/action_send_syslog.h"
#include "actions/set_property/action_set_property.h"
#include "actions/set_status/action_set_status.h"
#include "actions/spawn_command/action_spawn_command.h"
#include "actions/write_event_log/action_write_event_log.h"
#include "actions/write_file/write_file_action.h"
#include "actions/write_file/write_file_config.h"
#include "engine/action_config.h"

namespace vt {
namespace {

// Each action issue adds its row here; an id without a row is an unknown id (reported at load,
// skipped at run time). Ids and names are what stored configurations contain:
//   1000 ODBC database, 1001 forward syslog, 1002 send mail, 1003 write file,
//   1007 event log, 1008 net send, 1009 start a program, 1011 agent transfer protocol,
//   1012 set property, 1013 set status, 1014 call rule set, 1015 post-process,
//   1016 play sound, 1017 serial port, 1021 SNMP trap, 1022 control service,
//   1023 compute variable, 1024 HTTP request, 1025 OLE DB, 1026 resolve host name.
const ActionType kActionTypes[] = {
    {1000, "ODBC", &makeActionConfig<CActionConfigODBC>, &makeOdbcAction},
    {1001, "SendSyslog", &makeActionConfig<CActionConfigSendSyslog>,
     &makeAction<CActionConfigSendSyslog, CActionSendSyslog>},
    {1002, "SendMail", &makeActionConfig<CActionConfigSendMail>,
     &makeAction<CActionConfigSendMail, CActionSendMail>},
    {1003, "WriteFile", &makeActionConfig<CActionConfigWriteFile>,
     &makeAction<CActionConfigWriteFile, CActionRelaylogV3FlatFile>},
    {1007, "WriteNTEventReport", &makeActionConfig<CActionConfigWriteNTEventReport>,
     &makeAction<CActionConfigWriteNTEventReport, CActionWriteNTEventReport>},
    {1008, "NetSend", &makeActionConfig<CActionConfigNetSend>,
     &makeAction<CActionConfigNetSend, CActionNetSend>},
    {1009, "SpawnCommand", &makeActionConfig<CActionConfigSpawnCommand>,
     &makeAction<CActionConfigSpawnCommand, CActionSpawnCommand>},
    {1012, "SetProperty", &makeActionConfig<CActionConfigSetProperty>,
     &makeAction<CActionConfigSetProperty, CActionSetProperty>},
    {1013, "SetStatus", &makeActionConfig<CActionConfigSetStatus>,
     &makeAction<CActionConfigSetStatus, CActionSetStatus>},
    {1014, "CallRuleSet", &makeActionConfig<CActionConfigCallRuleSet>,
     &makeAction<CActionConfigCallRuleSet, CActionCallRuleSet>},
    {1015, "PostProcess", &makeActionConfig<CActionConfigPostProcess>,
     &makeAction<CActionConfigPostProcess, CActionPostProcess>},
    {1016, "PlaySound", &makeActionConfig<CActionConfigPlaySound>,
     &makeAction<CActionConfigPlaySound, CActionPlaySound>},
    {1017, "SendSerial", &makeActionConfig<CActionConfigSendSerial>,
     &makeAction<CActionConfigSendSerial, CActionSendSerial>},
    {1022, "ControlNTService", &makeActionConfig<CActionConfigControlNTService>,
     &makeAction<CActionConfigControlNTService, CActionControlNTService>},
    {1023, "ComputeVar", &makeActionConfig<CActionConfigComputeVar>,
     &makeAction<CActionConfigComputeVar, CActionComputeVar>},
    {1024, "HttpRequest", &makeActionConfig<CActionConfigHttpRequest>,
     &makeAction<CActionConfigHttpRequest, CActionHttpRequest>},
    {1026, "ResolveHostname", &makeActionConfig<CActionConfigResolveHostname>,
     &makeAction<CActionConfigResolveHostname, CActionResolveHostname>},
};

}  // namespace

std::span<const ActionType> agentActionTypes() noexcept {
    return kActionTypes;
}

}  // namespace vt
