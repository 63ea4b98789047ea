// Costs on the path of every event: building a unit, expanding templates, the XML form.
#include <benchmark/benchmark.h>

#include <string>

#include "model/info_unit_types.h"
#include "model/property_replacer.h"

namespace {

// 120 characters, a typical syslog body.
const std::u16string kMessage =
    u"sshd[4242]: Accepted publickey for backup from 192.0.2.17 port 52144 ssh2: RSA "
    u"SHA256:q5Nm0dXz7hGk2LwP fingerprint ok\r";

void fill(CInfoUnitSyslog& unit) {
    unit.setMsg(kMessage);
    unit.setRawMsg(kMessage);
    unit.setPropertyString(u"syslogtag", u"sshd");
    unit.setPropertyString(u"source", u"gateway-01");
    unit.setSyslogFacility(4);
    unit.setSyslogPriority(6);
}

void BM_CreateSyslogUnitSetSixDestroy(benchmark::State& state) {
    for (auto _ : state) {
        CInfoUnitSyslog unit;
        fill(unit);
        benchmark::DoNotOptimize(&unit);
    }
}
BENCHMARK(BM_CreateSyslogUnitSetSixDestroy);

void replace(benchmark::State& state, const char16_t* templ) {
    CInfoUnitSyslog unit;
    fill(unit);
    std::u16string out;
    for (auto _ : state) {
        out.clear();
        vt::replaceProperties(templ, &unit, out);
        benchmark::DoNotOptimize(out.data());
    }
}

void BM_ReplaceMsg(benchmark::State& state) {
    replace(state, u"%msg%");
}
BENCHMARK(BM_ReplaceMsg);

void BM_ReplaceSyslogLine(benchmark::State& state) {
    replace(state, u"%timegenerated:::uxTimeStamp% %source% %msg:1:80:escapecc%");
}
BENCHMARK(BM_ReplaceSyslogLine);

void BM_ToXML(benchmark::State& state) {
    CInfoUnitSyslog unit;
    fill(unit);
    for (auto _ : state) {
        CQuilletString xml = unit.toXML();
        benchmark::DoNotOptimize(xml.getString());
    }
}
BENCHMARK(BM_ToXML);

void BM_ParseXML(benchmark::State& state) {
    CInfoUnitSyslog unit;
    fill(unit);
    const CQuilletString xml = unit.toXML();
    for (auto _ : state) {
        auto back = CInfoUnit::createInfoUnitFromXML(xml.view());
        benchmark::DoNotOptimize(back.get());
    }
}
BENCHMARK(BM_ParseXML);

void BM_ReadIntTwice(benchmark::State& state) {
    CInfoUnitSyslog unit;
    fill(unit);
    for (auto _ : state) {
        benchmark::DoNotOptimize(unit.getSyslogPriority() + unit.getSyslogPriority());
    }
}
BENCHMARK(BM_ReadIntTwice);

}  // namespace
