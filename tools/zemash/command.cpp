#include "command.h"

#include "complete.h"
#include "json.h"
#include "qx/host.h"
#include "text.h"
#include "tree.h"
#include "zema/cmdagent.h"
#include "zema/zemacmd.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <utility>

namespace zemash {
namespace {

using Flow = std::unique_ptr<QxFlow, decltype(&QxHost_FlowClose)>;

constexpr const char *kEntryNames[] = {"display", "debug", "words", "tree"};

bool isRemoteCall(Entry entry)
{
    return entry == Entry::display || entry == Entry::debug;
}

// The message that the agent would make of the words; false when they do not fit into one that receivers
// take.
bool compile(uint32_t terminal, const Command &command, ZemaCmdMsg &message)
{
    std::string text = command.entry == Entry::words ? "" : command.text;
    return QX_ZEMA_Zemacmd_CompileCmd(terminal, text.data(), message.acArgs, &message.ulArgc) == ZEMA_OK &&
           message.ulArgc <= ZEMA_CMD_MAX_STRINGS;
}

uint32_t start(QxFlow *flow, uint32_t terminal, const Command &command, const ZemaCmdMsg &message)
{
    if (!isRemoteCall(command.entry)) {
        return QxHost_FlowInvokeEvent(flow, ZEMA_EVENT_CMD, &message, sizeof message);
    }
    const uint32_t id = command.entry == Entry::debug ? ZEMA_RPC_ID_DBGCMD : ZEMA_RPC_ID_CMD;
    return QxHost_FlowCallRpc(flow, id, terminal << 16U, command.text.c_str());
}

std::vector<QxFlowPeer> peersOf(const QxFlow *flow)
{
    std::vector<QxFlowPeer> peers(QxHost_FlowPeers(flow, nullptr, 0));
    QxHost_FlowPeers(flow, peers.data(), static_cast<uint32_t>(peers.size()));
    return peers;
}

std::string stateName(uint32_t state)
{
    return state == QX_FLOW_DONE ? "done" : state == QX_FLOW_DIED ? "died" : "waiting";
}

Answer &answerOf(std::vector<Answer> &answers, uint32_t pid)
{
    const auto found =
        std::find_if(answers.begin(), answers.end(), [&](const Answer &each) { return each.pid == pid; });
    return found != answers.end() ? *found : answers.emplace_back(Answer{pid, "?", "other", ""});
}

// Names and states are known at the end only; those that received the command come first, in the order of
// receipt.
void completeAnswers(std::vector<Answer> &answers, const QxFlow *flow)
{
    std::vector<Answer> ordered;
    for (const QxFlowPeer &peer : peersOf(flow)) {
        std::string &text = answerOf(answers, peer.ulPid).text;
        ordered.push_back({peer.ulPid, peer.acName, stateName(peer.ulState), std::exchange(text, "")});
    }
    std::copy_if(answers.begin(), answers.end(), std::back_inserter(ordered),
                 [](const Answer &each) { return !each.text.empty(); });
    answers = std::move(ordered);
}

std::string nameOf(const Answer &answer)
{
    return tools::harmless(answer.process) + " (pid " + std::to_string(answer.pid) + ")";
}

// The empty line that the agent prints before the answers is none.
bool hasAnswered(const Answer &answer)
{
    return answer.state != "other" && answer.text.find_first_not_of(" \t\r\n") != std::string::npos;
}

void complainOfPeers(Outcome &outcome, uint32_t waitMs)
{
    std::string receivers;
    for (const Answer &answer : outcome.answers) {
        if (answer.state == "waiting") {
            outcome.complaints.push_back(nameOf(answer) + " did not finish within " + std::to_string(waitMs) +
                                         " ms");
        } else if (answer.state == "died") {
            outcome.complaints.push_back(nameOf(answer) + " died before it was done");
        }
        receivers += (receivers.empty() ? "" : ", ") + nameOf(answer);
    }
    if (outcome.complaints.empty() &&
        std::none_of(outcome.answers.begin(), outcome.answers.end(), hasAnswered)) {
        outcome.complaints.push_back("no answer from any process that received it: " + receivers);
    }
}

std::string whyNotStarted(const Command &command, uint32_t handed)
{
    if (handed != QX_OK && handed != QX_ERR_NOBODY) {
        return "cannot be sent: " + tools::reasonOf(handed);
    }
    return "nobody there: no process takes " +
           std::string(isRemoteCall(command.entry) ? "commands" : "messages") +
           " in this runtime directory (is zemad running?)";
}

void judge(Outcome &outcome, const Command &command, uint32_t handed, uint32_t waited, uint32_t waitMs)
{
    const bool received = std::any_of(outcome.answers.begin(), outcome.answers.end(),
                                      [](const Answer &each) { return each.state != "other"; });
    if (waited == QX_ERR_STOPPED) {
        return; // by the operator, who knows
    }
    if (outcome.result.value_or(0) != 0) {
        outcome.exit = kRefused;
        outcome.complaints.push_back(
            whyRefused(command.text, command.entry == Entry::debug, *outcome.result));
        return;
    }
    if (!received) {
        outcome.complaints.push_back(whyNotStarted(command, handed));
    } else {
        if (handed != QX_OK) {
            outcome.complaints.push_back("not every process was reached: " + tools::reasonOf(handed));
        }
        complainOfPeers(outcome, waitMs);
    }
    outcome.exit = outcome.complaints.empty() ? kAnswered : kNoAnswer;
}

} // namespace

Command commandOf(std::string_view text, bool debug)
{
    const Entry service = debug ? Entry::debug : Entry::display;
    const Entry entry = text == "words" ? Entry::words : isTreeText(text) ? Entry::tree : service;
    return {.entry = entry, .text = std::string(text)};
}

Outcome runCommand(Terminal &terminal, const Command &command, uint32_t waitMs, const Listener &listener)
{
    Outcome outcome;
    ZemaCmdMsg message = {};
    if (command.text.find('\0') != std::string::npos ||
        (!isRemoteCall(command.entry) && !compile(terminal.number(), command, message))) {
        outcome.exit = kUsage;
        outcome.complaints.emplace_back("the words do not fit into a command message");
        return outcome;
    }
    const Flow flow(QxHost_FlowOpen(), QxHost_FlowClose);
    if (!flow) {
        outcome.complaints.push_back("cannot be sent: " + tools::reasonOf(QX_ERR_NO_MEMORY));
        return outcome;
    }
    const Listening listening(terminal, [&](uint32_t pid, std::string_view text) {
        outcome.output += text;
        answerOf(outcome.answers, pid).text += text;
        listener(pid, text);
    });
    const uint32_t handed = start(flow.get(), terminal.number(), command, message);
    const uint32_t waited = QxHost_FlowWait(flow.get(), waitMs);
    uint32_t result = 0;
    if (QxHost_FlowResult(flow.get(), &result) == QX_OK) {
        outcome.result = result;
    }
    completeAnswers(outcome.answers, flow.get());
    judge(outcome, command, handed, waited, waitMs);
    return outcome;
}

std::string toJson(const Terminal &terminal, const Command &command, const Outcome &outcome)
{
    const auto answerJson = [](const Answer &answer) {
        return JsonObject()
            .number("pid", answer.pid)
            .text("process", answer.process)
            .text("state", answer.state)
            .text("text", answer.text)
            .str();
    };
    return JsonObject()
        .text("command", command.text)
        .number("terminal", terminal.number())
        .text("entry", kEntryNames[static_cast<size_t>(command.entry)])
        .json("result", outcome.result ? std::to_string(*outcome.result) : "null")
        .number("exit", static_cast<uint64_t>(outcome.exit))
        .text("output", outcome.output)
        .json("answers", jsonArray(outcome.answers, answerJson))
        .str();
}

} // namespace zemash
