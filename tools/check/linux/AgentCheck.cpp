#include "check/linux/AgentCheck.h"

#include <algorithm>
#include <iterator>
#include <string>

namespace ravelin::check {

namespace {

std::string numbersOf(const std::vector<Process>& agents) {
  std::string numbers;
  for (const Process& agent : agents) {
    const bool isLast = &agent == &agents.back();
    numbers.append(numbers.empty() ? "" : isLast ? " and " : ", ").append(std::to_string(agent.id));
  }
  return numbers;
}

}  // namespace

std::vector<Process> agentsOf(uid_t user, const std::vector<Process>& all) {
  std::vector<Process> agents;
  std::ranges::copy_if(all, std::back_inserter(agents), [user](const Process& process) {
    return process.isAgent && process.user == user && !process.isElsewhere;
  });
  return agents;
}

Findings checkAgents(uid_t user, const std::vector<Process>& all) {
  Findings found;
  const auto agents = agentsOf(user, all);
  const Details details{{"processes", numbersOf(agents)}};
  if (agents.empty()) {
    found.push_back(
        wrong("agent-not-running", "no agent of " + nameOfUser(user) +
                                       " is running, and only a running agent makes shortcuts"));
  } else if (agents.size() == 1) {
    found.push_back(
        ok("agent-running", "the agent is running, as process " + numbersOf(agents), details));
  } else {
    found.push_back(wrong("agents-several",
                          std::to_string(agents.size()) + " agents of " + nameOfUser(user) +
                              " are running, as processes " + numbersOf(agents) +
                              ", and take each other's shortcuts away: end all but one of them",
                          details));
  }
  for (const Process& process : all) {
    if (process.isAgent && process.user != user && !process.isElsewhere) {
      found.push_back(
          note("agent-of-another-user",
               "an agent of " + nameOfUser(process.user) + " is running, too, as process " +
                   std::to_string(process.id) +
                   ": one of the two gets what is sent to this machine alone",
               {{"processes", std::to_string(process.id)}, {"user", nameOfUser(process.user)}}));
    }
  }
  return found;
}

}  // namespace ravelin::check
