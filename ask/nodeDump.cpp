// The dump of the state root: every field in its order, under its label.
#include <cstdio>

#include "task/task.h"

namespace {

void line(std::string& out, const char* label, uint64_t value) {
    char text[96];
    std::snprintf(text, sizeof text, "%s = %llu\r\n", label,
                  static_cast<unsigned long long>(value));
    out += text;
}
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

std::string aclDumpNode(const aclNodeRecord* node) {
    std::string out;
    line(out, "readfs descriptors", node->readfs.count());
    line(out, "writefs descriptors", node->writefs.count());
    line(out, "ipckey", node->ipckey);
    line(out, "regQfd", node->regQfd);
    line(out, "rspQfd", node->rspQfd);
    line(out, "tmrQfd", node->tmrQfd);
    line(out, "regQ", node->regQ);
    line(out, "rspQ", node->rspQ);
    line(out, "tmrQ", node->tmrQ);
    line(out, "pkey", node->pkey);
    line(out, "acl_swp_pipe", static_cast<uint32_t>(node->acl_swp_pipe));
    // Trees print the number of records in them.
    line(out, "rmap_tree", node->rmap_tree);
    line(out, "aclSys_tree", node->aclSys_tree);
    line(out, "acl_tree", node->acl_tree);
    line(out, "IPv6 acl_tree", node->v6acl_tree);
    line(out, "IP+MAC tree", node->ipMacAcl_tree);
    line(out, "DHCP-snooping VLAN tree", node->dhcpSnoopVlan_tree);
    line(out, "DHCP-snooping tree", node->dhcpSnoop_tree);
    line(out, "dos_tree", node->dos_tree);
    line(out, "l2acl_tree", node->l2acl_tree);
    line(out, "prefix_tree", node->prefix_tree);
    line(out, "IPv6 prefix_tree", node->v6prefix_tree);
    line(out, "acl_intf_tree", node->acl_intf_tree);
    line(out, "rmap_intf_tree", node->rmap_intf_tree);
    line(out, "vlan_intf_tree", node->vlan_intf_tree);
    line(out, "ipadd_intf_tree", node->ipadd_intf_tree);
    line(out, "qHandle", node->qHandle);
    line(out, "acl2qHandle", node->acl2qHandle);
    line(out, "acl0qHandle", node->acl0qHandle);
    line(out, "aclSNMPqHandle", node->aclSNMPqHandle);
    line(out, "aclIPMqHandle0", node->aclIPMqHandle[0]);
    line(out, "aclIPMqHandle1", node->aclIPMqHandle[1]);
    line(out, "aclIPMqHandle2", node->aclIPMqHandle[2]);
    line(out, "aclQosqHandle", node->aclQosqHandle);
    line(out, "IGMP queue", node->igmpqHandle);
    line(out, "PIM queue", node->pimqHandle);
    line(out, "aclSYSADMTSKqHandle", node->aclSYSADMTSKqHandle);
    line(out, "snmptargetcard", node->snmptargetcard);
    line(out, "ipmtargetcard0", node->ipmtargetcard[0]);
    line(out, "ipmtargetcard1", node->ipmtargetcard[1]);
    line(out, "ipmtargetcard2", node->ipmtargetcard[2]);
    line(out, "acltargetcard", node->acltargetcard);
    line(out, "sysadmtsktargetcard", node->sysadmtsktargetcard);
    line(out, "inverseMask", node->inverseMask);
    line(out, "supportAclOnCP", node->supportAclOnCP);
    line(out, "evtLogKey", node->evtLogKey);
    lineText(out, "lastPrefixList", node->lastPrefixList);
    lineText(out, "lastV6PrefixList", node->lastV6PrefixList);
    line(out, "sptSwitchThreshold", node->acl2PimCfgParams.sptSwitchThreshold);
    line(out, "ipv6UnicastRoutingEnable", node->ipv6UnicastRoutingEnable);
    line(out, "cfgNotifStart", node->cfgNotifStart);
    line(out, "VlanMem_Num", node->vlanMemNum);
    line(out, "CugID_Num", node->cugIdNum);
    line(out, "Egress IP Acl BitMap", node->egressIpAclBitMap.count());
    line(out, "Acl Vlan Group member BitMap", node->aclVlanGroupMemberBitMap.count());
    line(out, "IFM", node->ifmRegistered);
    line(out, "EVH", node->evhRegistered);
    line(out, "PEER", node->peerRegistered);
    line(out, "ACL2", node->acl2Registered);
    line(out, "ACL0", node->acl0Registered);
    line(out, "UDP helper", node->udpHelperRegistered);
    for (uint32_t kind = 0; kind < PEER_UPDATE_KINDS; kind++) {
        char label[32];
        std::snprintf(label, sizeof label, "peer update %u", kind);
        line(out, label, node->peerMark[kind]);
    }
    line(out, "chassis mode", node->chassisMode);
    line(out, "RPM type", node->rpmType);
    lineText(out, "RAM Data Sync", node->ramDataSync != 0 ? "Enabled" : "Disabled");
    line(out, "final word", node->finalWord);
    return out;
}
