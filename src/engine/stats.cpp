#include "engine/stats.h"

#include <algorithm>

#include "engine/que_man_list.h"

namespace vt {
namespace {

template <class Block>
void dropOrphans(std::vector<std::shared_ptr<Block>>& blocks) {
    std::erase_if(blocks, [](const std::shared_ptr<Block>& b) { return b.use_count() == 1; });
}

template <class Block>
std::shared_ptr<Block> addBlock(std::vector<std::shared_ptr<Block>>& blocks, std::string name) {
    auto block = std::make_shared<Block>();
    block->name = std::move(name);
    dropOrphans(blocks);
    blocks.push_back(block);
    return block;
}

std::string count(const char* label, const std::atomic<uint64_t>& value) {
    return std::string(" ") + label + "=" + std::to_string(value.load(std::memory_order_relaxed));
}

}  // namespace

CStatsRegistry& CStatsRegistry::instance() {
    static CStatsRegistry registry;
    return registry;
}

std::shared_ptr<SourceCounters> CStatsRegistry::addSource(std::string name) {
    std::lock_guard guard(m_lock);
    return addBlock(m_sources, std::move(name));
}

std::shared_ptr<ActionCounters> CStatsRegistry::addAction(std::string name) {
    std::lock_guard guard(m_lock);
    return addBlock(m_actions, std::move(name));
}

void CStatsRegistry::prune() {
    std::lock_guard guard(m_lock);
    dropOrphans(m_sources);
    dropOrphans(m_actions);
}

std::string CStatsRegistry::report(const CQueManList* queue) const {
    std::string line = "Stats|";
    if (queue)
        line += " queue length=" + std::to_string(queue->getLength()) +
                " highwater=" + std::to_string(queue->getHighWater()) +
                " waits=" + std::to_string(queue->getProducerWaits());
    std::lock_guard guard(m_lock);
    for (const auto& s : m_sources)
        if (s.use_count() > 1)
            line += " | " + s->name + count("units", s->units) + count("dropped", s->dropped);
    for (const auto& a : m_actions)
        if (a.use_count() > 1)
            line += " | " + a->name + count("done", a->done) + count("failed", a->failed) +
                    count("retried", a->retried) + count("aborted", a->aborted);
    return line;
}

}  // namespace vt
