// The dump of the state root: every field in its order, under its label.
#include <cstdio>

#include "platform/api/zekRadix.h"
#include "task/task.h"

namespace {

void line(std::string& out, const char* label, uint64_t value) {
    char text[96];
    std::snprintf(text, sizeof text, "%s = %llu\r\n", label,
                  static_cast<unsigned long long>(value));
    out += text;
}
// A tree that is not there yet counts as empty.
void line(std::string& out, const char* label, const zekRadix* tree) {
    line(out, label, tree != nullptr ? zekRadixCount(tree) : 0);
}
void lineText(std::string& out, const char* label, const char* value) {
    out += label;
    out += " = ";
    out += value;
    out += "\r\n";
}

}  // namespace

// One line a field: its length is the number of fields. Labels are what is searched for in dumps,
// so they stay even where a field has moved; CR LF ends a line as in shows.
std::string aclDumpNode(const aclNodeRecord* node) {
    std::string out;
    line(out, "readfs descriptors", node->ipc.readfs.count());
    line(out, "writefs descriptors", node->ipc.writefs.count());
    line(out, "ipckey", node->ipc.ipckey);
    line(out, "regQfd", node->ipc.regQfd);
    line(out, "rspQfd", node->ipc.rspQfd);
    line(out, "tmrQfd", node->ipc.tmrQfd);
    line(out, "regQ", node->ipc.regQ);
    line(out, "rspQ", node->ipc.rspQ);
    line(out, "tmrQ", node->ipc.tmrQ);
    line(out, "pkey", node->ipc.pkey);
    line(out, "acl_swp_pipe", static_cast<uint32_t>(node->ipc.acl_swp_pipe));
    // Trees print the number of records in them.
    line(out, "rmap_tree", node->trees.rmap_tree);
    line(out, "aclSys_tree", node->trees.aclSys_tree);
    line(out, "acl_tree", node->trees.acl_tree);
    line(out, "IPv6 acl_tree", node->trees.v6acl_tree);
    line(out, "IP+MAC tree", node->trees.ipMacAcl_tree);
    line(out, "DHCP-snooping VLAN tree", node->trees.dhcpSnoopVlan_tree);
    line(out, "DHCP-snooping tree", node->trees.dhcpSnoop_tree);
    line(out, "dos_tree", node->trees.dos_tree);
    line(out, "l2acl_tree", node->trees.l2acl_tree);
    line(out, "prefix_tree", node->trees.prefix_tree);
    line(out, "IPv6 prefix_tree", node->trees.v6prefix_tree);
    line(out, "acl_intf_tree", node->trees.acl_intf_tree);
    line(out, "rmap_intf_tree", node->trees.rmap_intf_tree);
    line(out, "vlan_intf_tree", node->trees.vlan_intf_tree);
    line(out, "ipadd_intf_tree", node->trees.ipadd_intf_tree);
    line(out, "qHandle", node->queues.qHandle);
    line(out, "acl2qHandle", node->queues.acl2qHandle);
    line(out, "acl0qHandle", node->queues.acl0qHandle);
    line(out, "aclSNMPqHandle", node->queues.aclSNMPqHandle);
    line(out, "aclIPMqHandle0", node->queues.aclIPMqHandle[0]);
    line(out, "aclIPMqHandle1", node->queues.aclIPMqHandle[1]);
    line(out, "aclIPMqHandle2", node->queues.aclIPMqHandle[2]);
    line(out, "aclQosqHandle", node->queues.aclQosqHandle);
    line(out, "IGMP queue", node->queues.igmpqHandle);
    line(out, "PIM queue", node->queues.pimqHandle);
    line(out, "aclSYSADMTSKqHandle", node->queues.aclSYSADMTSKqHandle);
    line(out, "snmptargetcard", node->queues.snmptargetcard);
    line(out, "ipmtargetcard0", node->queues.ipmtargetcard[0]);
    line(out, "ipmtargetcard1", node->queues.ipmtargetcard[1]);
    line(out, "ipmtargetcard2", node->queues.ipmtargetcard[2]);
    line(out, "acltargetcard", node->queues.acltargetcard);
    line(out, "sysadmtsktargetcard", node->queues.sysadmtsktargetcard);
    line(out, "inverseMask", node->config.inverseMask);
    line(out, "supportAclOnCP", node->chassis.supportAclOnCP);
    line(out, "evtLogKey", node->evtLogKey);
    lineText(out, "lastPrefixList", node->prefix.lastPrefixList);
    lineText(out, "lastV6PrefixList", node->prefix.lastV6PrefixList);
    line(out, "sptSwitchThreshold", node->protocol.acl2PimCfgParams.sptSwitchThreshold);
    line(out, "ipv6UnicastRoutingEnable", node->protocol.ipv6UnicastRoutingEnable);
    line(out, "cfgNotifStart", node->config.cfgNotifStart);
    line(out, "VlanMem_Num", node->groups.vlanMemNum);
    line(out, "CugID_Num", node->groups.cugIdNum);
    line(out, "Egress IP Acl BitMap", node->groups.egressIpAclBitMap.count());
    line(out, "Acl Vlan Group member BitMap", node->groups.aclVlanGroupMemberBitMap.count());
    line(out, "IFM", node->standing.ifmRegistered);
    line(out, "EVH", node->standing.evhRegistered);
    line(out, "PEER", node->standing.peerRegistered);
    line(out, "ACL2", node->standing.acl2Registered);
    line(out, "ACL0", node->standing.acl0Registered);
    line(out, "UDP helper", node->standing.udpHelperRegistered);
    for (uint32_t kind = 0; kind < PEER_UPDATE_KINDS; kind++) {
        char label[32];
        std::snprintf(label, sizeof label, "peer update %u", kind);
        line(out, label, node->peer.peerMark[kind]);
    }
    line(out, "chassis mode", node->chassis.chassisMode);
    line(out, "RPM type", node->chassis.rpmType);
    lineText(out, "RAM Data Sync", node->peer.ramDataSync != 0 ? "Enabled" : "Disabled");
    line(out, "DHCP trapping", node->protocol.acl_dhcp);
    line(out, "final word", node->finalWord);
    return out;
}
