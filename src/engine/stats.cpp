#include "engine/stats.h"

#include <algorithm>
#include <type_traits>

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

// A label value in quotes, with the format's three escapes.
std::string label(const std::string& value) {
    std::string out = "\"";
    for (char c : value) {
        if (c == '\\' || c == '"') out += '\\';
        if (c == '\n') {
            out += "\\n";
            continue;
        }
        out += c;
    }
    return out + "\"";
}

template <class Number>
std::string sample(const char* name, const std::string& labels, const Number& value) {
    uint64_t number = 0;
    if constexpr (std::is_integral_v<Number>)
        number = static_cast<uint64_t>(value);
    else
        number = value.load(std::memory_order_relaxed);
    std::string line = name;
    if (!labels.empty()) line += "{" + labels + "}";
    return line + " " + std::to_string(number) + "\n";
}

}  // namespace

std::string metric(const char* name, const char* type, const std::string& labels, uint64_t value) {
    return std::string("# TYPE ") + name + " " + type + "\n" + sample(name, labels, value);
}

CStatsRegistry& CStatsRegistry::instance() {
    static CStatsRegistry registry;
    return registry;
}

std::shared_ptr<SourceCounters> CStatsRegistry::addSource(std::string name) {
    std::lock_guard guard(m_lock);
    return addBlock(m_sources, std::move(name));
}

std::shared_ptr<ActionCounters> CStatsRegistry::addAction(std::string name, std::string type) {
    std::lock_guard guard(m_lock);
    auto block = addBlock(m_actions, std::move(name));
    block->type = std::move(type);
    return block;
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
            line += " | input '" + s->name + "'" + count("units", s->units) +
                    count("dropped", s->dropped);
    for (const auto& a : m_actions)
        if (a.use_count() > 1)
            line += " | action '" + a->name + "' (" + a->type + ")" + count("done", a->done) +
                    count("failed", a->failed) + count("retried", a->retried) +
                    count("aborted", a->aborted);
    return line;
}

std::string CStatsRegistry::prometheusText(const CQueManList* queue) const {
    std::string text;
    if (queue) {
        text += metric("vtagent_queue_length", "gauge", "", queue->getLength());
        text += metric("vtagent_queue_highwater", "gauge", "", queue->getHighWater());
        text +=
            metric("vtagent_queue_producer_waits_total", "counter", "", queue->getProducerWaits());
    }
    std::lock_guard guard(m_lock);
    const auto inputs = [&](const char* name, auto field) {
        text += std::string("# TYPE ") + name + " counter\n";
        for (const auto& s : m_sources)
            if (s.use_count() > 1) text += sample(name, "input=" + label(s->name), (*s).*field);
    };
    inputs("vtagent_input_units_total", &SourceCounters::units);
    inputs("vtagent_input_dropped_total", &SourceCounters::dropped);
    const auto actions = [&](const char* name, auto field) {
        text += std::string("# TYPE ") + name + " counter\n";
        for (const auto& a : m_actions)
            if (a.use_count() > 1)
                text += sample(name, "action=" + label(a->name) + ",type=" + label(a->type),
                               (*a).*field);
    };
    actions("vtagent_action_done_total", &ActionCounters::done);
    actions("vtagent_action_failed_total", &ActionCounters::failed);
    actions("vtagent_action_retried_total", &ActionCounters::retried);
    actions("vtagent_action_aborted_total", &ActionCounters::aborted);
    return text;
}

}  // namespace vt
