#!/usr/bin/env bash
# vtagent against rsyslogd on the same loads, in one run: each receives the same messages on
# loopback and writes every message as "%msg%" plus a line feed to one file. Prints for each:
# messages per second end to end (first message sent to last line written), CPU seconds per
# million messages, peak RSS, and for UDP the fraction lost; then the vtagent/rsyslog ratios.
#
#   bench/syslog_vs_rsyslog.sh            (builds build/linux first; needs /usr/sbin/rsyslogd)
# tls-1: one TCP connection in TLS (the same test certificate on both sides, rsyslogd with its
# OpenSSL driver); 5424-1: one TCP connection of octet-counted RFC 5424 messages.
# Environment: TCP_COUNT (1000000), UDP_COUNT (500000), UDP_RATE (100000), SIZE (120),
# ROUNDS (3), CASES ("tcp-1 tcp-8 udp tls-1 5424-1"), VT_WORKERS (5), PERF_OUT (profile vtagent),
# PERF_CALLGRAPH (perf record call-graph option, default -g; "--call-graph dwarf" for jemalloc).
set -euo pipefail
cd "$(dirname "$0")/.."
ROOT=$(pwd)
B=$ROOT/build/linux
TCP_COUNT=${TCP_COUNT:-1000000}
UDP_COUNT=${UDP_COUNT:-500000}
UDP_RATE=${UDP_RATE:-100000}
SIZE=${SIZE:-120}
RSYSLOGD=${RSYSLOGD:-/usr/sbin/rsyslogd}
[ -x "$RSYSLOGD" ] || { echo "rsyslogd not found at $RSYSLOGD (apt-get install rsyslog)" >&2; exit 1; }

export CCACHE_DIR=${CCACHE_DIR:-$HOME/.ccache} CCACHE_BASEDIR=$ROOT
cmake -S "$ROOT" -B "$B" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$B" -j "$(nproc)" --target vtagent vtreg syslog_load_generator >/dev/null

T=$(mktemp -d /tmp/syslog-bench.XXXXXX)
PIDS=()
cleanup() {
  for p in "${PIDS[@]:-}"; do [ -n "$p" ] && kill "$p" 2>/dev/null || true; done
  wait 2>/dev/null || true
  [ -n "${KEEP:-}" ] || rm -rf "$T"
}
trap cleanup EXIT
TICK=$(getconf CLK_TCK)
exec 4>&1  # the result rows; fd 3 carries the rates back

free_port() {
  python3 -c 'import socket
for _ in range(50):
    t=socket.socket(); t.bind(("127.0.0.1",0)); p=t.getsockname()[1]
    u=socket.socket(socket.AF_INET,socket.SOCK_DGRAM)
    try:
        u.bind(("127.0.0.1",p)); print(p); break
    except OSError: pass
    finally: u.close(); t.close()'
}

cpu_ticks() { awk '{print $14+$15}' "/proc/$1/stat"; }
peak_rss_kb() { awk '/VmHWM/{print $2}' "/proc/$1/status"; }
lines_of() { if [ -f "$1" ]; then wc -l <"$1"; else echo 0; fi; }

make_pki() {
  [ -f "$T/pki/server.pem" ] && return 0
  mkdir -p "$T/pki"
  openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=localhost \
    -addext subjectAltName=DNS:localhost,IP:127.0.0.1 \
    -keyout "$T/pki/server.key" -out "$T/pki/server.pem" 2>/dev/null
}

start_vtagent() {  # dir proto port [kind: plain|tls|5424]
  local dir=$1 proto=$2 port=$3 kind=${4:-plain} sep=""
  # A TCP message keeps the line feed that ended it, so there "%msg%" is the whole line; a
  # counted RFC 5424 message has none.
  local format='%msg%%$LF%'
  [ "$proto" = 1 ] && [ "$kind" != 5424 ] && format='%msg%'
  mkdir -p "$dir"
  [ "$proto" = 1 ] && sep='"nEnableTCPMsgSep"=dword:00000001
"szTCPMsgSep"="\\n"'
  case $kind in
    tls) sep="$sep
\"nUseTLS\"=dword:00000001
\"szTLSCertFile\"=\"$T/pki/server.pem\"
\"szTLSKeyFile\"=\"$T/pki/server.key\"" ;;
    5424) sep="$sep
\"nParseRFC5424\"=dword:00000001
\"nTCPOctetCounting\"=dword:00000001" ;;
  esac
  cat >"$dir/bench.reg" <<REG
Windows Registry Editor Version 5.00

[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quillet\\Vantor\\Agent\\General]
"nEnableDebugOutput"=dword:00000001
"nDebugErrors"=dword:00000001
"nDebugMini"=dword:00000001
"nCircularLogging"=dword:00000000
"nWorkerThreads"=dword:${VT_WORKERS:-5}
"szDebugFileName"="$dir/debug.txt"

[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quillet\\Vantor\\Agent\\RuleSets]
"nRuleSetsVersion"=dword:00000001
"nRuleSetCount"=dword:00000001
"szRSName1"="Bench"

[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quillet\\Vantor\\Agent\\RuleSets\\RS1]
"nRuleCount"=dword:00000001

[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quillet\\Vantor\\Agent\\RuleSets\\RS1\\R1]
"nActionCount"=dword:00000001
"nActionType1"=dword:000003eb
"szActionName1"="file"

[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quillet\\Vantor\\Agent\\RuleSets\\RS1\\R1\\A1]
"szFilePath"="$dir"
"szFileBaseName"="out"
"nUniqueFileName"=dword:00000000
"nFileFormat"=dword:00000003
"szLineFormat"="$format"

[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quillet\\Vantor\\Agent\\Services]
"nConfigVersion"=dword:00000001
"nInfoSourceCount"=dword:00000001
"nISType1"=dword:00000001
"szISName1"="bench"

[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quillet\\Vantor\\Agent\\Services\\IS1]
"nConfigVersion"=dword:00000001
"szRuleSetName"="Bench"
"szMyIPAddress"="127.0.0.1"
"nListenPort"=dword:$(printf %08x "$port")
"nProtocolType"=dword:0000000$proto
$sep
REG
  VTAGENT_REGISTRY=$dir/registry.db "$B/vtreg" import "$dir/bench.reg"
  (cd "$dir" && VTAGENT_REGISTRY=$dir/registry.db VTAGENT_EVENTLOG_SOCKET=$dir/none.sock \
     exec "$B/vtagent" -r >"$dir/console.txt" 2>&1) &
  VT_PID=$!
  PIDS+=("$VT_PID")
  for _ in $(seq 200); do
    grep -q "CInfoSourceSyslog: listening on" "$dir/debug.txt" 2>/dev/null && return 0
    sleep 0.05
  done
  echo "vtagent did not start listening; see $dir" >&2; exit 1
}

start_rsyslog() {  # dir proto port [kind]
  local dir=$1 proto=$2 port=$3 kind=${4:-plain}
  mkdir -p "$dir/work"
  local input global="global(workDirectory=\"$dir/work\")"
  if [ "$kind" = tls ]; then
    global="global(workDirectory=\"$dir/work\" DefaultNetstreamDriver=\"ossl\"
  DefaultNetstreamDriverCertFile=\"$T/pki/server.pem\" DefaultNetstreamDriverKeyFile=\"$T/pki/server.key\")"
    input="module(load=\"imtcp\" MaxSessions=\"2000\" StreamDriver.Name=\"ossl\" StreamDriver.Mode=\"1\" StreamDriver.AuthMode=\"anon\")
input(type=\"imtcp\" address=\"127.0.0.1\" port=\"$port\")"
  elif [ "$proto" = 1 ]; then
    input="module(load=\"imtcp\" MaxSessions=\"2000\")
input(type=\"imtcp\" address=\"127.0.0.1\" port=\"$port\")"
  else
    input="module(load=\"imudp\")
input(type=\"imudp\" address=\"127.0.0.1\" port=\"$port\")"
  fi
  cat >"$dir/rsyslog.conf" <<CONF
$global
$input
template(name="msgonly" type="string" string="%msg%\n")
action(type="omfile" file="$dir/out.log" template="msgonly")
CONF
  "$RSYSLOGD" -n -f "$dir/rsyslog.conf" -i "$dir/rsyslogd.pid" >"$dir/console.txt" 2>&1 &
  RS_PID=$!
  PIDS+=("$RS_PID")
  for _ in $(seq 200); do
    if [ "$proto" = 1 ]; then
      (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null && return 0
    else
      ss -lun 2>/dev/null | grep -q "127.0.0.1:$port " && return 0
    fi
    sleep 0.05
  done
  echo "rsyslogd did not start listening; see $dir/console.txt" >&2; cat "$dir/console.txt" >&2; exit 1
}

# measure NAME PID OUTFILE EXPECTED generator-args... -> prints a result row, sets R_RATE
measure() {
  local name=$1 pid=$2 out=$3 expected=$4; shift 4
  local cpu0 start end cpu1 lines last stable
  cpu0=$(cpu_ticks "$pid")
  start=$("$B/bench/syslog_load_generator" "$@")
  last=-1; stable=0
  while :; do
    lines=$(lines_of "$out")
    [ "$lines" -ge "$expected" ] && break
    if [ "$lines" = "$last" ]; then stable=$((stable + 1)); else stable=0; fi
    [ "$stable" -ge 60 ] && break   # 3 s without a new line: the rest is lost
    last=$lines
    sleep 0.05
  done
  cpu1=$(cpu_ticks "$pid")
  end=$(stat -c %.9Y "$out")
  python3 - "$name" "$start" "$end" "$lines" "$expected" "$cpu0" "$cpu1" "$TICK" \
    "$(peak_rss_kb "$pid")" <<'PY'
import sys
name, start, end, lines, expected, c0, c1, tick, rss = sys.argv[1:]
secs = float(end) - int(start) / 1e9
lines, expected = int(lines), int(expected)
cpu = (int(c1) - int(c0)) / int(tick)
rate = lines / secs if secs > 0 else 0
print("%-9s %12.0f msg/s %8.2f CPU s/M %8.1f MiB peak RSS %8.4f lost  (%d of %d in %.2f s)"
      % (name, rate, cpu / max(lines, 1) * 1e6, int(rss) / 1024, 1 - lines / expected,
         lines, expected, secs))
with open("/dev/fd/3", "w") as f:
    f.write("%f\n" % rate)
PY
}

run_case() {  # label proto count extra [kind]
  local label=$1 proto=$2 count=$3 extra=$4 kind=${5:-plain} mode=tcp
  [ "$proto" = 0 ] && mode=udp
  [ "$kind" = tls ] && make_pki
  export GEN_TLS=0 GEN_FORMAT=3164
  [ "$kind" = tls ] && GEN_TLS=1
  [ "$kind" = 5424 ] && GEN_FORMAT=5424
  local vp rp
  vp=$(free_port); start_vtagent "$T/$label-$round-vt" "$proto" "$vp" "$kind"
  rp=$(free_port); start_rsyslog "$T/$label-$round-rs" "$proto" "$rp" "$kind"
  echo "== $label: $count messages of $SIZE bytes ($mode, $extra $([ "$mode" = tcp ] && echo connection\(s\) || echo msg/s))"
  local vr rr
  local perfpid=""
  if [ -n "${PERF_OUT:-}" ]; then  # profile vtagent: perf report -i $PERF_OUT.<label>.<round>
    perf record ${PERF_CALLGRAPH:--g} -o "$PERF_OUT.$label.$round" -p "$VT_PID" 2>/dev/null & perfpid=$!
    sleep 0.5
  fi
  vr=$(measure vtagent "$VT_PID" "$T/$label-$round-vt/out.log" "$count" "$mode" "$vp" "$count" "$SIZE" "$extra" 3>&1 >&4)
  [ -n "$perfpid" ] && { kill -INT "$perfpid"; wait "$perfpid" || true; }
  sync  # each side's file reaches the disk outside the other's measurement
  rr=$(measure rsyslog "$RS_PID" "$T/$label-$round-rs/out.log" "$count" "$mode" "$rp" "$count" "$SIZE" "$extra" 3>&1 >&4)
  local ratio
  ratio=$(python3 -c "import sys; v,r=float(sys.argv[1]),float(sys.argv[2]); print('%.2f' % (v/r if r else 0))" "$vr" "$rr")
  echo "   ratio vtagent/rsyslog msg/s: $ratio"
  RATIOS[$label]="${RATIOS[$label]:-} $ratio"
  kill -INT "$VT_PID" 2>/dev/null || true
  kill "$RS_PID" 2>/dev/null || true
  wait "$VT_PID" 2>/dev/null || true
  wait "$RS_PID" 2>/dev/null || true
  # The next case must not pay for writing this one's files back to disk.
  [ -n "${KEEP:-}" ] || rm -rf "$T/$label-$round-vt" "$T/$label-$round-rs"
  sync
}

echo "rsyslogd: $("$RSYSLOGD" -v | head -1)"
# Rounds of all cases, so that a passing disturbance of the machine shows as one outlier
# rather than as the result; the summary gives each case's median ratio.
declare -A RATIOS
for round in $(seq "${ROUNDS:-3}"); do
  echo "--- round $round"
  for c in ${CASES:-tcp-1 tcp-8 udp tls-1 5424-1}; do
    case $c in
      tcp-1) run_case tcp-1 1 "$TCP_COUNT" 1 ;;
      tcp-8) run_case tcp-8 1 "$TCP_COUNT" 8 ;;
      udp) run_case udp 0 "$UDP_COUNT" "$UDP_RATE" ;;
      tls-1) run_case tls-1 1 "$TCP_COUNT" 1 tls ;;
      5424-1) run_case 5424-1 1 "$TCP_COUNT" 1 5424 ;;
    esac
  done
done
echo "--- median ratio vtagent/rsyslog msg/s over ${ROUNDS:-3} round(s)"
for c in ${CASES:-tcp-1 tcp-8 udp tls-1 5424-1}; do
  python3 -c "import sys, statistics; r=[float(x) for x in sys.argv[2:]]; print('%-6s %.2f  (%s)' % (sys.argv[1], statistics.median(r), ' '.join(sys.argv[2:])))" "$c" ${RATIOS[$c]}
done
