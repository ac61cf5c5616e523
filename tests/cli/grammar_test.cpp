// Lines and what the shell makes of them: the bytes of their requests, the refusals, the help.
#include <algorithm>
#include <regex>
#include <sstream>

#include "tests/cli/fakeManager.h"

namespace {

constexpr cliContext in(cliMode mode) {
    return {mode, false, false};
}
constexpr cliContext exec = in(cliMode::exec), configure = in(cliMode::configure),
                     standard = in(cliMode::standard), trace = in(cliMode::trace);

// What stands behind a request's header, word by word where it differs from `plain`, which is zero
// at first: "68-72=FFFFFFFF" are two equal words, a text stands between quotation marks.
std::string differences(std::span<const uint8_t> bytes, std::span<const uint8_t> plain) {
    std::ostringstream out;
    auto isText = [&](size_t at) {
        return at + 3 <= bytes.size() &&
               std::ranges::all_of(bytes.subspan(at, 3), [](int c) { return c > 31 && c < 127; });
    };
    for (size_t at = offsetof(cliHdr, name); at < bytes.size();) {
        auto word = bytes.subspan(at, 4);
        if (std::ranges::equal(word, plain.subspan(at, 4))) {
            at += 4;
        } else if (isText(at)) {
            std::string text(reinterpret_cast<const char*>(&bytes[at]));
            out << ' ' << at << "=\"" << text << '"';
            for (at += text.size(); at % 4 != 0; at++)
                if (bytes[at] != 0) out << " and behind it " << int{bytes[at]};
        } else {
            size_t last = at;
            while (last + 8 <= bytes.size() && std::ranges::equal(word, bytes.subspan(last + 4, 4)))
                last += 4;
            out << ' ' << at;
            if (last != at) out << '-' << last;
            char hex[12];
            snprintf(hex, sizeof hex, "=%X", wordAt(bytes, at));
            out << hex;
            at = last + 4;
        }
    }
    return out.str();
}

// A line's request, in what it differs from `plain`, and *plain when it is of another size; what a
// command without one says; what can stand where it ends in "?"; or the refusal: "column: sentence;
// expected: words".
std::string outcome(const cliContext& context, std::string_view line, std::vector<uint8_t>* plain) {
    cliCommand command;
    cliParseError error;
    cliChannel channel;
    cliRequest request;
    size_t length = 0;
    std::ostringstream out;
    cliParsed parsed = cliParsed::nothing;
    if (line.ends_with('?')) {
        std::vector<cliHelpRow> help;
        line.remove_suffix(1);
        if (!cliHelp(context, line, &help, &error)) parsed = cliParsed::refused;
        for (const cliHelpRow& row : help) out << (out.str().empty() ? "" : ", ") << row.word;
        if (parsed == cliParsed::nothing) return out.str();
    } else {
        parsed = cliParse(context, line, &command, &error);
    }
    if (parsed == cliParsed::nothing) return "nothing";
    if (parsed == cliParsed::refused) {
        out << error.column << ": " << error.text;
        for (const std::string& word : error.expected)
            out << (&word == error.expected.data() ? "; expected: " : ", ") << word;
        return out.str();
    }
    const cliScope scope{listNameMake("LIST"), 0x7000001, 20, 1};
    if (!requestBuild(&channel, command, scope, &request, &length))
        return "command '" + std::string(command.name) + "' " + std::to_string(command.kind) +
               " '" + command.text + "'";
    const auto* first = reinterpret_cast<const uint8_t*>(&request);
    std::vector<uint8_t> bytes(first, first + length);
    if (length == sizeof(ipcHdr)) return std::to_string(request.ipc.mtype);
    out << request.cli.code << ' ' << length;
    out << differences(bytes, plain->size() == length ? *plain : std::vector<uint8_t>(length));
    if (plain->size() != length) *plain = bytes;
    return out.str();
}

// Modes, and in each of them lines with what becomes of them: the code and length of the request
// and the words in which it differs from the section's first; another line that says the same; or
// the refusal, of which "..." leaves out the rest. What does not fit a line goes on behind four
// blanks. A line with {one|other=2} stands for several: $ is what the one chosen is equal to, or
// it.
constexpr char LINES[] = R"lines([standard]
permit any => 1002 384 80="LIST" 272-276=FFFFFFFF 280=40000 284=1 292=FFFFFFFF 296=FF 380=FF000000
 seq 5 deny any => 1002 384 248=1 292=5
permit 10.1.0.0/16 => 1002 384 252=A010000 256=FFFF0000
permit 10.1.9.9/0 => 1002 384 252=A010909
permit 10.1.0.0 0.255.0.255 => 1002 384 252=A010000 256=FF00FF00
  permit   any	dscp  46 fragments count bytes order 7 => 1002 384 280=6040000 296=7 376=1
    380=2E000000
no deny any => 1003 384 248=1
no seq 5 => 1003 384 292=5
seq 4294967290 permit any => 1002 384 292=FFFFFFFA
{!permit any|	   |!| ! a comment} => nothing
permit 10.0.0.0 ? => A.B.C.D
no seq 5 ? => permit, deny, <cr>
permit 10.0.0.0 => 16: The line is incomplete; expected: A.B.C.D
permit {10.0.0.256|10.0.0.0/33} => 7: Unexpected word "$"; expected: any, host, A.B.C.D/LEN, A.B.C.D
  permit 010.0.0.1 0.0.0.0 => 9: Unexpected word "010.0.0.1" ...
permit any precedence 1 => 11: Unexpected word "precedence"; expected: dscp, fragments, log, count,
    bytes, order, monitor, <cr>
permit any dscp 64 => 16: Unexpected word "64"; expected: <0-63>
permit any order 255 => 17: Unexpected word "255"; expected: <0-254>
seq 4294967291 permit any => 4: The sequence number is out of range (at most 4294967290, of MAC
    lists 65535, of prefix lists 65534)
seq 99999999999999999999 permit any => 4: Unexpected word "99999999999999999999" ...
seq 5 => 6: The line is incomplete; expected: permit, deny
 remark 0 all | of <it>  => 1142 308 80="LIST" 220=616C6C 224=" | of <it>"
no remark 4294967290 => 1143 308 220-300=0 304=FFFFFFFA
 description x => 1153 316 80="LIST" 220=3E8 228=14 232=78000000
no description x => 1153 316 224=1 232-312=0
remark 5 => 9: The line is incomplete; expected: TEXT
remark permit => 7: Unexpected word "permit"; expected: <0-4294967290>
description az => 12: A remark or description has no control characters
[standard inverse]
permit any => 1002 384 80="LIST" 272-276=FFFFFFFF 280=40000 284=1 292=FFFFFFFF 296=FF 380=FF000000
permit 10.1.0.0 255.0.255.0 => 1002 384 252=A010000 256=FF00FF00
permit 10.1.0.0/16 => 1002 384 252=A010000 256=FFFF0000
[extended]
permit ip any any => 1002 384 80="LIST" 272-276=FFFFFFFF 280=40000 284=2 292=FFFFFFFF 296=FF
    380=FF000000
permit 6 any any established => 1002 384 280=60000 372=1000000
seq 10 deny tcp any host 1.2.3.4 eq 23 log count => 1002 384 220=1 248=1 260=1020304 264=FFFFFFFF
    280=2060000 292=A 360=1 368=170000
permit udp 10.0.0.0/8 range 1 65535 any neq 53 => 1002 384 252=A000000 256=FF000000 280=110000
    356=5 360=4 364=1FFFF 368=350000
permit tcp any gt 1 any lt 2 fin syn rst psh ack urg precedence 7 tos 15 => 1002 384 272=7 276=F
    280=60000 356=2 360=3 364=10000 368=20000 372=7E000000
permit ip any any dscp 1 fragments log count bytes order 254 monitor => 1002 384 220-224=1
    280=6040000 296=FE 376=1 380=1000000
permit icmp any any host-unreachable => 1002 384 280=10000 356=3010101
permit icmp any any tos 1 3 77 log => 1002 384 220=1 276=1 280=10000 356=3014D01
permit tcp any eq 65536 any => 18: Unexpected word "65536"; expected: <0-65535>
permit tcp any range 20 10 any => 24: The second port of a range must not be below the first
permit arp any VLAN 4096 any => 20: Unexpected word "4096"; expected: <0-4095>
permit arp 0:1:2:3:4:5 VLAN 1 any => 11: Unexpected word "0:1:2:3:4:5" ...
permit ether-type 0 any VLAN 1 any => 18: Unexpected word "0"; expected: <1-ffff>
permit ip any any dscp 254 => 23: Unexpected word "254"; expected: <0-63>
[extended]
permit arp any VLAN 10 any => 1002 384 80="LIST" 272-276=FFFFFFFF 280=40000 284=2 292=FFFFFFFF
    296=FF 300=1 304=806 312=FFFF 316=FFFFFFFF 324=FFFF 328=FFFFFFFF 340=A 380=FF000000
permit arp any VLAN 10 opcode 1 10.0.0.0/8 log count bytes order 9 monitor => 1002 384 220-224=1
    252=A000000 256=FF000000 280=4040000 296=9 344-348=1 352=2
permit ether-type 800 any VLAN 10 any => 1002 384 300=0 304=800
deny  ether-type 800 any VLAN 10  00:11:aa:BB:cc:dd 00:00:00:ff:ff:ff => 1002 384 248=1 300=0
    304=800 320=11AABB 324=CCDD0000 328=FFFFFF
[extended wide]
permit ip any any => 1002 384 80="LIST" 272-276=FFFFFFFF 280=40000 284=2 292=FFFFFFFF 296=FF
    380=FF000000
permit ip any any dscp 254 => 1002 384 380=FE000000
permit ip any any precedence 4294967294 => 1002 384 272=FFFFFFFE
permit ip any any tos 200 => 1002 384 276=C8
permit arp any VLAN 70000 any => 1002 384 300=1 304=806 312=FFFF 316=FFFFFFFF 324=FFFF 328=FFFFFFFF
    340=11170
[trace]
deny ip any any log => 1007 384 80="LIST" 220=1 248=1 272-276=FFFFFFFF 280=40000 284=2 292=FFFFFFFF
    296=FF 380=FF000000
no deny ip any any => 1006 384 220-244=0
permit tcp any any eq 1 dscp 1 => 24: Unexpected word "dscp"; expected: established, fin, syn, rst,
    psh, ack, urg, precedence, tos, log, count, bytes, <cr>
permit arp any VLAN 1 any => 7: Unexpected word "arp"; expected: tcp, udp, ip, icmp, <0-255>
remark 5 x => 0: Unexpected word "remark" ...
[ip6]
permit ipv6 any any => 1166 336 80="LIST" 304=40000 308=FFFFFFFF
 seq 5 deny tcp host 2001:db8::1 eq 23 2001:db8::/33 range 1 2 fin urg log count bytes monitor =>
    1166 336 220=1 232=1 236=20010DB8 248=1 252-264=FFFFFFFF 268=20010DB8 284=FFFFFFFF 288=80000000
    304=6060000 308=5 312=1 316=5 320=170000 324=10002 328=42000000 332=1
permit udp ::ffff:1.2.3.4/128 neq 1 any => 1166 336 244=FFFF 248=1020304 252-264=FFFFFFFF
    304=110000 312=4 320=10000
permit {icmp|58} any any 135 0 => 1166 336 304=3A0000 312=87010001
no seq 5 => 1167 336 308=5
remark 9  two  blanks  => 1169 308 80="LIST" 220=74776F 224="  blanks" 304=9
permit arp any any => 7: Unexpected word "arp"; expected: tcp, udp, ipv6, icmp, <0-255>
permit ipv6 any {10.0.0.0/8|2001:db8::1} => 16: Unexpected word "$"; expected: any, host,
    X:X::X/LEN
permit ipv6 host 1.2.3.4 any => 17: Unexpected word "1.2.3.4"; expected: X:X::X
permit 1 any any 8 => 17: Unexpected word "8"; expected: log, count, bytes, monitor, <cr>
permit icmp any any echo => 20: Unexpected word "echo"; expected: log, count, bytes, monitor, <cr>,
    <0-255>
permit tcp any any established => 19: Unexpected word "established"; expected: eq, gt, lt, neq, range,
    fin, syn, rst, psh, ack, urg, log, count, bytes, monitor, <cr>
[macStandard]
permit any => 1099 292 80="LIST" 228=FFFFFFFF 236=FFFF 240=FFFFFFFF 248=FFFF 252=FFFFFFFF 256=1
    276=FF 284=FF
 seq 65535 deny {|host }00:1B:c0:ff:0A:9e  => 1099 292 224=1 228=FFFF 232=1BC0FF 236=A9E0000
    240-244=0
 seq 7 permit 00:1b:c0:ff:0a:9e 00:00:00:00:00:ff log count bytes order 7monitor  => 1099 292 220=1
    228=7 232=1BC0FF 236=A9E0000 240=FF 276=7 280=6 284=7 288=1
no seq 5 => 1098 292 228=5 236-244=0
permit host 00:1b:c0:ff:0a:9e 00:00:00:00:00:ff => 30: Unexpected word "00:00:00:00:00:ff" ...
seq 65536 permit any => 4: The sequence number is out of range ...
remark 65536 x => 7: The sequence number is out of range ...
[macExtended]
permit any any => 1099 292 80="LIST" 228=FFFFFFFF 236=FFFF 240=FFFFFFFF 248=FFFF 252=FFFFFFFF 256=2
    276=FF 284=FF
 seq 7 deny host  00:1b:c0:ff:0a:9e any  ev2 eq 800 log count bytes order 254monitor  => 1099 292
    220-224=1 228=7 232=1BC0FF 236=A9E0000 240-244=0 260=A 264=1 268=8000000 276=FE 280=6 284=FE
    288=1
 seq 7 deny 00:1b:c0:ff:0a:9e 0f:0f:0f:0f:0f:0f host  00:00:00:00:00:01  llc neq 0 => 1099 292
    224=1 228=7 232=1BC0FF 236=A9E0F0F 240=F0F0F0F 248=10000 252=0 260=C 264=4
permit any any snap {gt=2|lt=3} ffff => 1099 292 260=B 264=$ 268=FFFF0000
permit 00:1b:c0:ff:0a:9e any => 25: Unexpected word "any"; expected: xx:xx:xx:xx:xx:xx
permit any any ev2 800 => 19: Unexpected word "800"; expected: eq, gt, lt, neq
permit any any order 255monitor => 21: Unexpected word "255monitor"; expected: <0-254>
[prefix4]
permit any => 1044 252 80="LIST" 232=20
 seq 10 deny any => 1044 252 220=A 224=1
 seq 65534 permit 10.0.0.0/8 => 1044 252 220=FFFE 232-236=0 240=8000000 244=A000000 248=FF000000
 seq 5 permit 10.0.0.0 255.0.0.0 => 1044 252 220=5 232-236=0 240=8000000 244=A000000 248=FF000000
permit 10.0.0.0/8 ge 16 le 24 => 1044 252 228=10 232=18 240=8000000 244=A000000 248=FF000000
permit 10.0.0.1 bitmask 255.0.0.255 => 1044 252 232-236=0 240=FF000000 244=A000001 248=FF0000FF
no seq 10 => 1045 252 220=A 232-248=0
no permit 10.0.0.0/8 => 1045 252 232-236=0 240=8000000 244=A000000 248=FF000000
seq {0|65535} permit any => 4: Unexpected word "$"; expected: <1-65534>
permit 10.0.0.0 255.0.255.0 => 16: The mask has gaps: write "bitmask" before it
permit 10.0.0.0/8 ge 33 => 21: Unexpected word "33"; expected: <1-32>
permit any le 8 => 11: Unexpected word "le"; expected: <cr>
 description  of customers!  => 1153 316 80="LIST" 220=41B 228=14 232="of customers!"
no description => 1153 316 224=1 232-312=0
remark 5 x => 0: Unexpected word "remark" ...
[prefix4 inverse]
 seq 5 permit 10.0.0.0 255.0.0.0 => 1044 252 80="LIST" 220=5 240=8000000 244=A000000 248=FF000000
permit 10.0.0.1 bitmask 255.0.0.255 => 1044 252 220-236=0 240=FF000000 244=A000001 248=FF0000FF
[prefix4 wide]
permit 0.0.0.0/0 ge -5 => 1044 252 80="LIST" 228=FFFFFFFB
[prefix6]
 seq 1 permit any => 1149 276 80="LIST" 220=1 232=80
deny 2001:db8::/32 ge 48 => 1149 276 220=0 224=1 228=30 232-236=0 240=20000000 244=20010DB8
    260=FFFFFFFF
permit ::1 bitmask ff:: => 1149 276 220-236=0 240=FF000000 256=1 260=FF0000
no seq 1 => 1150 276 232-272=0
permit {2001:db8::/129|10.0.0.0/8} => 7: Unexpected word "$"; expected: any, X:X::X/LEN, X:X::X
[aspath]
 permit ^65000_ (1|2)  => 1011 460 80="LIST" 224="^65000_ (1|2)"
no deny _7_ => 1009 460 220=1 224="_7_" 228-456=0
permit => 7: The line is incomplete; expected: EXPRESSION
[community]
 permit => 1015 1020 80="LIST" 224=1
 permit 65000:1 2:65535 no-export no-advertise local-AS => 1015 1020 236=FDE8 240=2 272=1 276=FFFF
    308=2 312-320=1
 deny 2147483647 1:2 => 1015 1020 220-224=1 232=7FFFFFFF 236=1 272=2 308=1
 no permit regexp ^1:.*  => 1013 1020 224=2 324="^1:.*"
permit 65536:1 => 7: Both parts of a community are at most 65535
permit {2147483648|1:-1} => 7: Unexpected word "$" ...
permit 1:1 1:1 1:1 1:1 1:1 1:1 1:1 1:1 1:1 1:1 => 43: There are too many communities in one line
[extCommunity]
 deny soo 1:2 => 1017 1020 80="LIST" 220-224=1 232=3 236=1 240=30001 244=2
 permit rt 100:5 1.2.3.4:7 as4 70000:9 non-trans 1:4294967295 non-trans  => 1017 1020 220=0 232=2
    236=4 240=20064 244=5 248=1020102 252=3040007 256=42020001 260=11700009 264=40020001
    268=FFFFFFFF
 no permit regexp a b => 1018 1020 220=0 224=2 232-236=0 240="a b" 244-1016=0
permit rt 70000:1 => 10: The AS number is at most 65535: write "as4" before a larger one
permit rt as4 1:65536 => 14: The number behind the colon is at most 65535
permit rt non-trans => 10: Unexpected word "non-trans"; expected: AS:N, A.B.C.D:N, as4, <cr>
[routeMap]
match tag 0 => 1025 1088 80="LIST" 228=10000 232=89 988=14 992=1 1000=2
match {as-path=1|access list=2|ip next-hop=3|community=4|ip address=5|ip route-source=7|
    ip address prefix-list=8|ip route-source prefix-list=B|extcommunity=7D} A => 1025 1088 232=$
    236=41000000 1000=1
match ip next-hop {=3|prefix-list =9}prefix-list => 1025 1088 232=$ 236="prefix-list" 1000=1
match community A exact => 1025 1088 232=6 236=41000000 1000=1
match {origin egp =C 376=1|route-type external =85 376=2|route-type external type-2 =85 376=4|
    route-type level-1 =85 376=5|interface port-channel 1=86 376=7000001|
    metric 4294967295=88 376=FFFFFFFF} => 1025 1088 232=$
match ipv6 {address prefix-list=D|next-hop prefix-list=E|route-source prefix-list=F|next-hop=10|
    route-source=11|address=12} A => 1161 1088 228=20000 232=$ 236=41000000 1000=1
set {local-preference 7=64 376=7|weight 7=65 376=7|metric 7=67 376=7|metric + 7=67 376=7 1024=1|
    metric - 7=67 376=7 1024=2|as-path 7=68 376=7|tag 7=78 376=7|next-hop 10.0.0.1=66 376=A000001|
    automatic-tag =6A 1000=4|level stub-area=6B 376=6|metric-type type-1=6C 376=3|
    as-path tag =6D 1000=4|origin incomplete =6E 376=2} => 1025 1088 228=30000 232=$
set community 65000:1 2:3 local-AS no-advertise no-export additive none  => 1025 1088 228=30000
    232=69 384=FDE8 388=2 516=1 520=3 648-664=1 668=2 1000=4
set as-path prepend 65000 1.2  => 1025 1088 228=30000 232=6F 688=FDE8 692=10002 720=2 1000=4
set comm-list A delete => 1025 1088 228=30000 232=70 236=41000000 1000=1
set dampening 1 2 3 4 => 1025 1088 228=30000 232=71 672=1 676=2 680=3 684=4 1000=4
set ipv6 next-hop 2001:db8::1 => 1161 1088 228=40000 232=79 1000=3 1064=20010DB8 1076=1
continue 30 => 1025 1088 228=7A0000 232=7B 376=1E 1056=1 1060=1E
continue => 1025 1088 228=7A0000 232=7B
set extcommunity soo 1:2 additive  => 1025 1088 228=30000 232=7C 724=30001 728=2 980-984=1 1000=4
no match interface port-channel 1 => 1024 1088 232=86 376=7000001 1084=1
no match ipv6 address A => 1160 1088 228=20000 232=12 236=41000000 1000=1 1084=1
no set {level=6B|metric=67} => 1024 1088 228=30000 232=$ 1084=1
no set {as-path prepend=6F|extcommunity=7C} => 1024 1088 228=30000 232=$ 1000=4 1084=1
no continue => 1024 1088 228=7A0000 232=7B 1084=1
set community {5 1:1=16|1:1 5=18} => $: The communities are one number, or AS:N
set level => 10: The line is incomplete; expected: level-1, level-2, level-1-2, backbone, stub-area
set as-path prepend 1 2 3 4 5 6 7 8 9 => 36: At most 8 AS numbers can be prepended
match ip address prefix-lis X => 28: Unexpected word "X"; expected: <cr>
continue 0 => 9: Unexpected word "0"; expected: <1-2147483647>, <cr>
[configure]
ip access-list standard LIST => 1000 224 80="LIST" 220=1
{=0|no =1}ip access-list extended LIST => 100$ 224 220=2
{no =4|=5}ip trace-list LIST => 100$ 224 220=0
ip trace-group LIST => 1041 220 80="LIST"
{no ip trace-group=1040|ip prefix-list=1042|no ipv6 prefix-list=1148|ip as-path access-list=1010|
    no ip community-list=1012|ip extcommunity-list=1016} LIST => $ 220
{=7|no =8}access-list inverse-mask => 1451$
{=0|no =1}mac egress-filter => 110$ 220 80-216=0
{=8|no =9}ip dhcp-trap => 110$ 220 80-216=0
route-map LIST => 1021 228 80="LIST" 224=FFFFFFFF
no route-map LIST {permit=1|deny=2} 30 => 1020 228 220=1E 224=$
no route-map LIST  => 1020 228 224=0
resequence ipv6 prefix-list LIST 10 5 => 1185 232 80="LIST" 220=A 224=5 228=2
resequence ip access-list LIST 0 65535 => 1182 228 80="LIST" 224=FFFF
resequence {ipv6=3|mac=4} access-list LIST 0 65535 => 118$ 228
resequence mac access-list LIST 65536 1 => 32: Unexpected word "65536"; expected: <0-65535>
resequence ip access-list LIST 5 0 => 33: Unexpected word "0"; expected: <1-4294967290>
no resequence ip access-list LIST 5 5 => 3: Unexpected word "resequence" ...
ipv6 access-list LIST => 1162 220 80="LIST"
mac access-list extended LIST => 1103 224 80="LIST" 220=2
remark 5 x => 0: Unexpected word "remark" ...
do clear ip access-lists counters => 1031 220
ip access-list standard => 24: The line is incomplete; expected: NAME
permit any => 0: Unexpected word "permit" ...
do show system => command '' 0 ''
no do show system => 3: Unexpected word "do"; expected: ip, ipv6, mac, route-map,
    acl-vlan-group, access-list
[exec]
clear {ip access-lists counters=1031|ip prefix-list=1047|ipv6 access-lists counters=30014|
    mac access-lists counters=30016} => $ 220
clear {ip access-lists counters=1030|ipv6 prefix-list=1151|ipv6 access-lists counters=30013|
    mac access-lists counters=30015} LIST => $ 220 80="LIST"
shw => 0: Unexpected word "shw"; expected: show, clear, write, chassis, configure, test, debug,
    exit, end
show s => 5: Ambiguous word "s"; expected: startup-config, system, system-lists
show => 5: The line is incomplete; expected: running-config, startup-config, configuration, ip,
    ipv6, mac, access-groups, acl-vlan-groups, route-maps, clients, logging, system, system-lists,
    queues, cards, card, interfaces, vlan, port-channel, protocols
show {interfaces=vlan 10|protocols=vlan 10} vlan 10 => command '' 0 '$'
show {vlan=10|port-channel=10} 10 => command '' 0 '$'
show port-channel 0 => 18: Unexpected word "0"; expected: <1-4094>, <cr>
show system now => 12: Unexpected word "now"; expected: <cr>
test ip access-list A tcp 1.2.3.4 5.6.7.8 flags syn,{foo|} => 48: A packet's flags are fin, syn,
    rst, psh, ack and urg, with commas between
test route-map R 10.0.0.0/8 as-path "1 2 => 36: The quotation mark is not closed
SHOW Ip access-l => as show ip access-lists
show ip access-g => as show ip access-group
debug mask  3  4  => command 'mask' 0 '3  4'
test ip access-list A tcp 1.2.3.4 5.6.7.8 dst 80 fl syn,ack fragment => command '' 0 'A tcp 1.2.3.4
    5.6.7.8 dst-port 80 flags syn,ack fragment'
test ipv6 access-list A icmp ::1 2001:db8::9 icmp-type 3 icmp-code 1 fragment => command '' 3 'A
    icmp ::1 2001:db8::9 icmp-type 3 icmp-code 1 fragment'
test ipv6 access-list A tcp ::1 ::2 tos 4 => 36: Unexpected word "tos"; expected: src-port,
    dst-port, flags, icmp-type, fragment, <cr>
test mac access-list A 02:00:00:00:00:01 ff:ff:ff:ff:ff:ff {snap 88cc|llc 0} => command '' 4 'A
    02:00:00:00:00:01 ff:ff:ff:ff:ff:ff $'
test mac access-list A 02:00:00:00:00:01 ff:ff:ff:ff:ff:ff ev2 10000 => 63: Unexpected word "10000";
    expected: <0-ffff>
test route-map R 10.0.0.0/8 as-path "1 2" metric 5 => command '' 11 'R 10.0.0.0/8 as-path "1 2"
    metric 5'
show ip access-lists {A installed=A|installed} => command '$' 0 ''
show {ipv6 access-lists A installed=3|mac access-lists A=4} => command 'A' $ ''
chassis card 3 shutdown => command '' 2 ''
chassis vlan 10 {join=9|leave=10} port-ch 1 2/0 => command '' $ 'vlan 10 port-channel 1 2/0'
chassis port-channel 1 {group 7=12|group none=12|delete=11} => command '' $ 'port-channel 1'
chassis port-channel 1 join => 28: The line is incomplete; expected: PORT
chassis vlan 10 join 2/0 port-channel => 38: The line is incomplete; expected: <1-4094>
chassis interface 1/0 {up=15|down=15|mode 3=16|address add 10.0.0.1/24=13|delete=11} => command ''
    $ '1/0'
chassis interface vlan 10 address del 2001:db8::1/64 => command '' 14 'vlan 10'
chassis interface 1/0 address add 10.0.0.1/33 => 34: Unexpected word "10.0.0.1/33"; expected:
    A.B.C.D/LEN, X:X::X/LEN
chassis protocol {enable=17|disable=18} vrrp vlan 10 vmac 00:00:5e:00:01:0a => command '' $
    'vlan 10'
chassis protocol enable vrrp vlan 10 vmac 1 => 42: Unexpected word "1"; expected: xx:xx:xx:xx:xx:xx
show s? => startup-config, system, system-lists
show system-lists {"Global Acl"=Global Acl|A=A} => command '$' 13 ''
show system-lists "A B" installed => command 'A B' 13 ''
show card 3 access-lists "Global Acl" => command 'Global Acl' 1 ''
show system-lists "" => 18: There is no such name
show ip access-lists ? => NAME, <cr>
zzz? =>
[interface]
ip access-group A in => 1039 1016 80=41000000 220=7000001 232=1
 ip access-group A out implicit-permit => 1039 1016 224-232=1
 ip access-group A in Vlan 10-20,30 => 1039 1016 236-240=1 244=C 248=3FF802 760="10-20,30"
 ip access-group A in implicit-permit Vlan 1-4094 => 1039 1016 228-240=1 244=FFE 248=7FFFFFFF
    252-752=FFFFFFFF 756=FFFFFFFE 760="1-4094"
 ip access-group A in Vlan 7 implicit-permit => 1039 1016 228-244=1 248=1000000 760=37000000
 no ip access-group A out => 1038 228 80=41000000 220=7000001 224=1
ip access-group A => 18: The line is incomplete; expected: in, out
ip access-group A in Vlan {0|4095|20-10|1,,2} => 26: A VLAN range is N or N-M from 1 to 4094,
    several with commas between
ipv6 access-group A in implicit-permit Vlan 7 => 1164 1016 80=41000000 220=7000001
    228-244=1 248=1000000 760=37000000
no ipv6 access-group A out => 1165 228 80=41000000 220=7000001 224=1
mac access-group A out => 1104 1016 80=41000000 220=7000001 224=1 232=1
no ip access-group A in implicit-permit => 24: Unexpected word "implicit-permit"; expected: <cr>
 ip source-guard 10.0.0.1 02:00:00:aa:bb:cc vlan 7 => 30017 236 220=7000001 224=A000001 228=20000AA
    232=BBCC0007
ip source-guard 10.0.0.1 02:00:00:aa:bb:cc => 30017 236 232=BBCC0000
ip source-guard 10.0.0.1 2:0:0:aa:bb => 25: Unexpected word "2:0:0:aa:bb"; expected:
    xx:xx:xx:xx:xx:xx
ip source-guard 10.0.0.1 02:00:00:aa:bb:cc vlan 4095 => 48: Unexpected word "4095"; expected:
    <1-4094>
[vlanGroup]
 member vlan 10,20-30 => 1134 1144 80="LIST" 368=1 372=C 376=200FFE 888="10,20-30"
no member vlan 30 => 1135 1144 372=1 376=2 888=33300000 892-1140=0
ip access-group A out => 1136 1144 224=41000000 368-1140=0
 ip access-group A out implicit-permit => 1136 1144 224=41000000 364=1 368-1140=0
no ip access-group A out => 1137 1144 224=41000000 368-1140=0
ip access-group A in => 18: Unexpected word "in"; expected: out
member vlan 5000 => 12: A VLAN range is N or N-M from 1 to 4094, several with commas between
ip access-list extended X => 1000 224 80=58000000 220=2
[vlanGroup]
 description x => 1153 316 80="LIST" 220=46C 228=14 232=78000000
no description => 1153 316 224=1 232-312=0
)lines";

constexpr std::string_view MODES[] = {"exec",        "configure",   "interface",    "vlanGroup",
                                      "standard",    "extended",    "trace",        "ip6",
                                      "macStandard", "macExtended", "prefix4",      "prefix6",
                                      "aspath",      "community",   "extCommunity", "routeMap"};

struct lineRow {
    cliContext context;
    bool first;  // of its section
    std::string line, expected;
};
std::vector<lineRow> lineRows() {
    std::vector<lineRow> rows;
    cliContext context{};
    bool first = false;
    const std::string joined = std::regex_replace(LINES, std::regex("\n    "), " ");
    std::istringstream in(joined);
    for (std::string line; std::getline(in, line);) {
        if (line[0] == '[') {
            std::istringstream words(line.substr(1, line.size() - 2));
            std::string mode, option;
            words >> mode >> option;
            context = {static_cast<cliMode>(std::ranges::find(MODES, mode) - std::begin(MODES)),
                       option == "inverse", option == "wide"};
            first = true;
            continue;
        }
        const size_t arrow = line.find(" =>"), open = line.find('{'), shut = line.find('}');
        const std::string expected = line.substr(std::min(arrow + 4, line.size()));
        std::istringstream ways(open == line.npos ? ""
                                                  : line.substr(open + 1, shut - open - 1) + "|");
        std::string way;
        if (open == line.npos) rows.push_back({context, first, line.substr(0, arrow), expected});
        while (std::getline(ways, way, '|')) {
            const size_t equals = std::min(way.find('='), way.size());
            const std::string value = way.substr(equals == way.size() ? 0 : equals + 1);
            way.resize(equals);
            rows.push_back({context, first,
                            line.substr(0, open) + way + line.substr(shut + 1, arrow - shut - 1),
                            std::regex_replace(expected, std::regex("[$]"), value)});
        }
        first = false;
    }
    return rows;
}

}  // namespace

TEST(Grammar, LinesBecomeTheirRequestsOrAreRefused) {
    std::vector<uint8_t> plain;
    for (const lineRow& row : lineRows()) {
        SCOPED_TRACE(row.line);
        if (row.first) plain.clear();
        std::string got = outcome(row.context, row.line, &plain), expected = row.expected;
        if (size_t dots = expected.find(" ..."); dots != expected.npos) {
            EXPECT_TRUE(got.starts_with(expected.substr(0, dots))) << got;
        } else if (expected.starts_with("as ")) {
            cliCommand one, other;
            cliParseError error;
            EXPECT_EQ(cliParse(row.context, row.line, &one, &error), cliParsed::command);
            EXPECT_EQ(cliParse(row.context, &expected[3], &other, &error), cliParsed::command);
            EXPECT_EQ(one.verb, other.verb);
            EXPECT_EQ(one.name, other.name);
            EXPECT_EQ(one.text, other.text);
        } else {
            EXPECT_EQ(got, expected);
        }
    }
}

TEST(Grammar, ALineKeepsNothingOfTheOneBefore) {
    const cliContext atExec{cliMode::exec, false, false};
    cliCommand command;
    cliParseError error;
    const std::string line = "chassis protocol enable vrrp vlan 10";
    for (const auto& [vmac, last] : {std::pair(" vmac 00:00:5e:00:01:0a", 10), std::pair("", 0)}) {
        EXPECT_EQ(cliParse(atExec, line + vmac, &command, &error), cliParsed::command);
        EXPECT_EQ(command.pair.mac[5], last);
    }
    // A comment that asks wants no help.
    for (const auto& [text, isText] : {std::pair(" ! wh", true), std::pair("show ", false)})
        EXPECT_EQ(cliInText(atExec, text), isText) << text;
}

TEST(Grammar, NamesAndExpressionsAreTakenUpToTheirLength) {
    std::vector<uint8_t> plain;
    const std::string list = "ip access-list standard ", name(140, 'n'),
                      text(ASPATH_TEXT_LEN - 1, 'x');
    EXPECT_EQ(outcome(configure, list + name, &plain), "1000 224 80=\"" + name + "\" 220=1");
    EXPECT_EQ(outcome(configure, list + name + "n", &plain),
              "24: Unexpected word \"" + name + "n\"; expected: NAME");
    const cliContext aspath = in(cliMode::aspath);
    EXPECT_NE(outcome(aspath, "permit " + text, &plain).find("\"" + text + "\""), text.npos);
    EXPECT_EQ(outcome(aspath, "permit x" + text, &plain), "7: The expression is too long");
}

// Whatever is typed, a refusal's column lies in the line or right behind it.
TEST(Grammar, EveryBeginningOfALineIsJudgedWithoutHarm) {
    std::vector<lineRow> rows = lineRows();
    rows.push_back({configure, false, "ip access-list extended \x01\xff|!", ""});
    for (const lineRow& row : rows)
        for (size_t length = 0; length <= row.line.size(); length++)
            for (const cliContext& context : {row.context, exec, configure, standard, trace}) {
                std::string part = row.line.substr(0, length);
                std::vector<uint8_t> plain;
                for (const std::string& asked : {part, part + "?"}) {
                    const std::string got = outcome(context, asked, &plain);
                    if (const size_t colon = got.find(": "); colon < 6) {
                        EXPECT_LE(std::stoul(got), part.size() + 1) << part;
                    }
                }
            }
}
