#!/usr/bin/env bash
# The Windows build of vtagent as a real service under Wine: command line, install, start and
# stop through the service control manager, remove. Wine's event log keeps nothing, so the
# events are read from Wine's own trace of ReportEvent (event ids in hex), and the service's
# steps from the agent's debug log. Uses a Wine prefix of its own; every Wine call is bounded.
#   usage: wine_service_test.sh BUILD_DIR_OF_THE_WINDOWS_BUILD
set -uo pipefail
BUILD=$(cd "${1:?usage: wine_service_test.sh WINDOWS_BUILD_DIR}" && pwd) || exit 1
EXE=$BUILD/vtagent.exe
export WINEPREFIX=${VT_WINE_SERVICE_PREFIX:-$BUILD/wineprefix-service}
export WINEDLLOVERRIDES="mscoree,mshtml="
# fixme+advapi shows ReportEvent with its event id; the rest stays quiet.
export WINEDEBUG=-all,fixme+advapi
NAME=QuilletVantoreAgent
GENERAL='HKLM\SOFTWARE\Quillet\Vantor\Agent\General'
WORK=$(mktemp -d)
TRACE=$WORK/wine-trace.txt
DEBUG_FILE=$WINEPREFIX/drive_c/vtagent-service-test.txt
failures=0

w() { timeout 60 wine "$@" 2>>"$TRACE"; }
fail() { echo "wine_service_test: FAIL: $*"; failures=$((failures + 1)); }
expect_output() {  # expect_output "EXPECTED" ARGS...: stdout of vtagent.exe, CRLF line ends
    local expected=$1; shift
    local got; got=$(w "$EXE" "$@" | od -An -c | tr -s ' \n' ' ')
    local want; want=$(printf '%b\n' "$expected" | sed 's/$/\r/' | od -An -c | tr -s ' \n' ' ')
    [ "$got" = "$want" ] || fail "vtagent $* printed [$got], expected [$want]"
}
state_of() { w sc query "$NAME" | sed -n 's/.*STATE *: *\([0-9]\).*/\1/p'; }
wait_state() {  # wait_state STATE SECONDS
    local i
    for ((i = 0; i < $2 * 2; i++)); do
        [ "$(state_of)" = "$1" ] && return 0
        sleep 0.5
    done
    return 1
}
cleanup() {
    w "$EXE" -u >/dev/null
    wineserver -k >/dev/null 2>&1
    rm -rf "$WORK"
}
trap cleanup EXIT

[ -x "$EXE" ] || { echo "wine_service_test: $EXE not built"; exit 1; }
[ -d "$WINEPREFIX" ] || timeout 300 wineboot --init >/dev/null 2>&1
wineserver -k >/dev/null 2>&1
# A run that was cut short may have left the service behind.
w "$EXE" -u >/dev/null
rm -f "$DEBUG_FILE"
w reg add "$GENERAL" /v nEnableDebugOutput /t REG_DWORD /d 1 /f >/dev/null
w reg add "$GENERAL" /v nDebugMini /t REG_DWORD /d 1 /f >/dev/null
w reg add "$GENERAL" /v nDebugInternal /t REG_DWORD /d 1 /f >/dev/null
w reg add "$GENERAL" /v nCircularLogging /t REG_DWORD /d 0 /f >/dev/null
w reg add "$GENERAL" /v szDebugFileName /t REG_SZ /d 'C:\vtagent-service-test.txt' /f >/dev/null

expect_output "$NAME Version 4.4 Build 334 (Final Release)
Usage: vtagent -h    --> This help message.
       vtagent -v    --> Show version information.
       vtagent -i    --> Install service.
       vtagent -u    --> Remove (uninstall) service.
       vtagent -r    --> Run as console application.
       vtagent -r -o --> Run ONCE as console application (see Manual!).
       vtagent -c    --> Check the configuration (-c -q: exit status only).
       vtagent -s    --> Show the counters of the running agent." -h
expect_output "$NAME Version 4.4\nThe service is not installed." -v
expect_output "$NAME installed" -i
expect_output "$NAME Version 4.4\nThe service is currently installed." -v
expect_output "$NAME is already installed" -i

w sc start "$NAME" >/dev/null
wait_state 4 30 || fail "service did not reach RUNNING (state $(state_of))"
w sc stop "$NAME" >/dev/null
# The service thread notices the stop within its 5 s poll.
wait_state 1 30 || fail "service did not reach STOPPED (state $(state_of))"

# The control-service action (1022) against this real service: a console agent whose heartbeat
# rule starts it. (The started service runs the same rule on itself and finds it running.)
SERVICES='HKLM\SOFTWARE\Quillet\Vantor\Agent\Services'
RULES='HKLM\SOFTWARE\Quillet\Vantor\Agent\RuleSets'
reg_set() { w reg add "$1" /v "$2" /t "$3" /d "$4" /f >/dev/null; }
reg_set "$SERVICES" nInfoSourceCount REG_DWORD 1
reg_set "$SERVICES" nISType1 REG_DWORD 2
reg_set "$SERVICES\IS1" nConfigVersion REG_DWORD 1
reg_set "$SERVICES\IS1" szRuleSetName REG_SZ Default
reg_set "$SERVICES\IS1" nSleepTime REG_DWORD 1000
reg_set "$RULES" nRuleSetsVersion REG_DWORD 1
reg_set "$RULES" nRuleSetCount REG_DWORD 1
reg_set "$RULES" szRSName1 REG_SZ Default
reg_set "$RULES\RS1" nRuleCount REG_DWORD 1
reg_set "$RULES\RS1\R1" nActionCount REG_DWORD 1
reg_set "$RULES\RS1\R1" nActionType1 REG_DWORD 1022
reg_set "$RULES\RS1\R1\A1" szServiceName REG_SZ "$NAME"
reg_set "$RULES\RS1\R1\A1" nAction REG_DWORD 1
wine "$EXE" -r >"$WORK/control.txt" 2>>"$TRACE" &
controller=$!
wait_state 4 60 || fail "the control-service action did not start the service (state $(state_of))"
kill -INT "$controller"
wait "$controller"
w sc stop "$NAME" >/dev/null
wait_state 1 30 || fail "service did not stop after the control-service test"
w reg delete "$SERVICES" /f >/dev/null
w reg delete "$RULES" /f >/dev/null

removed=$(w "$EXE" -u | tr -d '\r')
case $removed in
    "$NAME removed. (You must delete the file ("*"vtagent.exe) yourself.)") ;;
    *) fail "vtagent -u printed [$removed]" ;;
esac
expect_output "$NAME Version 4.4\nThe service is not installed." -v

# Console mode: Wine turns SIGINT into the console's Ctrl+C.
wine "$EXE" -r >"$WORK/console.txt" 2>>"$TRACE" &
console=$!
for ((i = 0; i < 60; i++)); do
    grep -q "Service Running" "$WORK/console.txt" && break
    sleep 0.5
done
kill -INT "$console"
for ((i = 0; i < 30; i++)); do
    kill -0 "$console" 2>/dev/null || break
    sleep 0.5
done
if kill -0 "$console" 2>/dev/null; then
    fail "console mode did not stop within 15 s of SIGINT"
    kill -KILL "$console"
fi
wait "$console"
console_rc=$?
[ "$console_rc" = 0 ] || fail "console mode ended with exit code $console_rc"
console_out=$(tr -d '\r' <"$WORK/console.txt")
[ "$console_out" = "$NAME: Initiating Console mode
$NAME: Service Running
$NAME: Initiating Shutdown, this can take up to 1 minute" ] ||
    fail "console mode printed [$console_out]"

# ReportEvent(handle, type, category, id, ...): 100 installed, 105 started, 108 stopped,
# 101 removed, each of type 4 (information).
for id in 64 69 6c 65; do
    grep -q "ReportEventA (.*,0x0004,0x0000,0x000000$id," "$TRACE" ||
        fail "event $((16#$id)) was not reported"
done
for line in "Service STARTUP [V4.4(Final Release)]- the time is" \
            "Running Engine Version 4.4.334 ***" \
            "): CNTService::Handler(1)" \
            "): Leaving CNTService::Run()" \
            "): CNTService::SetStatus(" \
            "): Leaving CNTService::ServiceMain()"; do
    grep -qF -- "$line" "$DEBUG_FILE" 2>/dev/null || fail "debug log lacks [$line]"
done

if ((failures)); then
    echo "wine_service_test: $failures failure(s)"
    exit 1
fi
echo "wine_service_test: command line, install, SCM start and stop, the control-service action starting the service, remove, console mode and events 100/105/108/101 passed"
