// Route maps in the debug shell. The functions take the lock themselves, around one call each; all
// but the two at the end only read.
#include "ask/debugWords.h"
#include "include/status.h"
#include "platform/api/zekTask.h"
#include "task/task.h"
#include "task/zekacl_lib.h"

namespace {

// No name is the empty name, which stands for all maps where that makes sense.
listName nameOf(std::string_view args) {
    const auto words = splitWords(args);
    return listNameMake(words.empty() ? std::string_view() : words[0]);
}

std::string printHits(std::string_view args) {
    aclLockHeld<aclLock::read> held;
    return rmapPrintHits(nameOf(args));
}
std::string dump(std::string_view args) {
    aclLockHeld<aclLock::read> held;
    return aclDumpRmapList(ipRmapListFind(nameOf(args)));
}
std::string dumpAll(std::string_view) {
    aclLockHeld<aclLock::read> held;
    return aclDumpAllRmapList();
}
std::string check(std::string_view) {
    aclLockHeld<aclLock::read> held;
    const std::string faults = aclRTest();
    return faults.empty() ? "no faults\n" : faults;
}
// Writes and tells as a change would, so it needs what a change needs.
std::string update(std::string_view args) {
    aclLockHeld<aclLock::write> held;
    return std::string(aclStatusFind(aclRmapUpdateOneList(nameOf(args)))->text) + "\n";
}
std::string toggle(std::string_view args) {
    const auto words = splitWords(args);
    // Anything but 0 or 1 only shows the value.
    if (words.size() == 1)
        if (auto value = parseNumber(words[0], 1)) acl_routemap_debug = *value;
    return "acl_routemap_debug = " + std::to_string(acl_routemap_debug) + "\n";
}

}  // namespace

void aclRegisterRmapFunctions() {
    zekDebugRegister("rmapPrintHits", "[NAME] how often each instance decided (text)", printHits);
    zekDebugRegister("aclDumpRmapList", "NAME dump of a route map (text)", dump);
    zekDebugRegister("aclDumpAllRmapList", "dump of all route maps (text)", dumpAll);
    zekDebugRegister("aclRTest", "checks the records of all route maps (text)", check);
    zekDebugRegister("aclRmapUpdateOneList",
                     "NAME writes a route map's lines again and tells its clients (text)", update);
    zekDebugRegister("acl_routemap_debug", "[0|1] prints the deletion of whole maps (text)",
                     toggle);
}
