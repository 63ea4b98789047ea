#include "common/test_info_source_helper.h"

#include <chrono>
#include <map>
#include <stdexcept>

#include "base/reg_access.h"
#include "model/info_unit.h"

namespace vt::test {
namespace {

std::mutex g_scriptsLock;
std::map<std::string, std::shared_ptr<TestSourceScript>> g_scripts;

std::shared_ptr<TestSourceScript> scriptOf(const std::string& name) {
    std::lock_guard lock(g_scriptsLock);
    auto& script = g_scripts[name];
    if (!script) script = std::make_shared<TestSourceScript>();
    return script;
}

std::unique_ptr<CInfoSource> makeTestSource(const InfoSourceContext& context) {
    return std::make_unique<CTestInfoSource>(context, scriptOf(context.serviceName.getStringA()));
}

}  // namespace

void TestSourceScript::release() {
    {
        std::lock_guard guard(lock);
        released = true;
    }
    changed.notify_all();
}

bool TestSourceScript::waitForRuns(int count) {
    std::unique_lock guard(lock);
    return changed.wait_for(guard, std::chrono::seconds(20), [&] { return runs.load() >= count; });
}

bool TestSourceScript::waitForDestruction() {
    std::unique_lock guard(lock);
    return changed.wait_for(guard, std::chrono::seconds(20), [&] { return destroyed; });
}

CTestInfoSource::CTestInfoSource(const InfoSourceContext& context,
                                 std::shared_ptr<TestSourceScript> script)
    : CInfoSource(context), m_script(std::move(script)) {
    std::lock_guard guard(m_script->lock);
    m_script->hadDnsCache = getDnsCache() != nullptr;
}

CTestInfoSource::~CTestInfoSource() {
    {
        std::lock_guard guard(m_script->lock);
        m_script->destroyed = true;
    }
    m_script->changed.notify_all();
}

bool CTestInfoSource::LoadConfig() {
    CRegAccess reg;
    const int32_t version = OpenConfig(reg, vt::kKeyRead);
    if (version != m_nLoadedConfigVersion) {
        m_nLoadedConfigVersion = version;
        readCommonValues(reg);
        reg.ReadDWORDValue(u"nTestValue", testValue, 0);
        ++typeReads;
    } else {
        reg.ReadDWORDValue(u"bServiceEnabled", m_bServiceEnabled, 1);
    }
    return isEnabled();
}

void CTestInfoSource::wake() {
    CInfoSource::wake();
    ++m_script->wakes;
    {
        std::lock_guard guard(m_script->lock);
        m_script->woken = true;
    }
    m_script->changed.notify_all();
}

void CTestInfoSource::Run() {
    TestSourceScript& s = *m_script;
    {
        std::lock_guard guard(s.lock);
        ++s.runs;
        s.finished = false;
    }
    s.changed.notify_all();
    if (s.throwsLeft.load() > 0) {
        --s.throwsLeft;
        throw std::runtime_error("test source fault");
    }
    for (int i = 0; i < s.unitsPerRun.load(); ++i) {
        if (s.waitForUnits) {
            CWaitableInfoUnit unit;
            setCommonInfoUnitSettings(unit);
            ++s.unitsHandedOver;
            if (EnqueueAndWait(unit)) ++s.unitsProcessed;
        } else {
            auto unit = std::make_unique<CInfoUnit>();
            setCommonInfoUnitSettings(*unit);
            unit->setMsgA("test unit");
            Enqueue(std::move(unit));
            ++s.unitsHandedOver;
        }
    }
    if (s.hang) {
        {
            std::unique_lock guard(s.lock);
            s.changed.wait(guard, [&] { return s.released; });
        }
        for (int i = 0; i < s.unitsAfterRelease.load(); ++i) {
            auto unit = std::make_unique<CInfoUnit>();
            setCommonInfoUnitSettings(*unit);
            if (Enqueue(std::move(unit))) ++s.acceptedAfterRelease;
        }
    } else if (s.blockUntilWoken) {
        std::unique_lock guard(s.lock);
        s.changed.wait(guard, [&] { return s.woken || s.released; });
    } else if (!s.returnAtOnce) {
        while (keepRunning()) waitWhileRunning(std::chrono::seconds(5));
    }
    s.finished = true;
}

TestSourceType::TestSourceType(uint32_t typeId, const char* className)
    : m_scope(InfoSourceType{typeId, className, &makeTestSource}) {}

TestSourceType::~TestSourceType() {
    std::lock_guard lock(g_scriptsLock);
    g_scripts.clear();
}

std::shared_ptr<TestSourceScript> TestSourceType::scriptFor(const std::string& serviceName) {
    return scriptOf(serviceName);
}

}  // namespace vt::test
