#include "HostSite.h"

namespace {

// Its ports are those of the simulated library's scenarios. Both fabrics have the same addresses. It boots
// from the first array; what is on vda is its own.
constexpr char sText[] = R"(kernel 6.1.0-28-amd64

fabric left  10:00:00:05:33:6c:a1:01
fabric right 10:00:00:05:33:6c:b2:01

port host1 fabric=left  wwpn=10:00:00:25:b5:01:00:00 wwnn=20:00:00:25:b5:01:00:00 id=0x010400 name=server1-hba0 switch="sw1 3/14"
port host2 fabric=right wwpn=10:00:00:25:b5:01:00:01 wwnn=20:00:00:25:b5:01:00:01 id=0x010400 name=server1-hba1 switch="sw2 3/14"
port host3 fabric=left  wwpn=10:00:00:25:b5:01:00:02 wwnn=20:00:00:25:b5:01:00:02 id=0x010500 name=server1-hba2 switch="sw1 3/15"
port host4 fabric=right wwpn=10:00:00:25:b5:01:00:03 wwnn=20:00:00:25:b5:01:00:03 id=0x010500 name=server1-hba3 switch="sw2 3/15"

target array1-A0 array=array1 controller=A fabric=left  wwpn=50:06:01:60:3b:20:11:0c wwnn=50:06:01:60:bb:20:11:0c id=0x010a00 switch="sw1 1/4"
target array1-A1 array=array1 controller=A fabric=right wwpn=50:06:01:61:3b:20:11:0c wwnn=50:06:01:60:bb:20:11:0c id=0x010a00 switch="sw2 1/4"
target array1-B0 array=array1 controller=B fabric=left  wwpn=50:06:01:68:3b:20:11:0c wwnn=50:06:01:60:bb:20:11:0c id=0x010b00 switch="sw1 1/5"
target array1-B1 array=array1 controller=B fabric=right wwpn=50:06:01:69:3b:20:11:0c wwnn=50:06:01:60:bb:20:11:0c id=0x010b00 switch="sw2 1/5"
target array2-A0 array=array2 controller=A fabric=left  wwpn=50:06:01:60:3b:20:22:0c wwnn=50:06:01:60:bb:20:22:0c id=0x030100 switch="sw1 2/4"
target array2-A1 array=array2 controller=A fabric=right wwpn=50:06:01:61:3b:20:22:0c wwnn=50:06:01:60:bb:20:22:0c id=0x030100 switch="sw2 2/4"
target array2-B0 array=array2 controller=B fabric=left  wwpn=50:06:01:68:3b:20:22:0c wwnn=50:06:01:60:bb:20:22:0c id=0x030200 switch="sw1 2/5"
target array2-B1 array=array2 controller=B fabric=right wwpn=50:06:01:69:3b:20:22:0c wwnn=50:06:01:60:bb:20:22:0c id=0x030200 switch="sw2 2/5"

lun array1 0  map=mpatha wwid=600601603b20110c0000000000000000 serial=MU1100000 gib=64   io=60
lun array1 12 map=mpathb wwid=600601603b20110c000000000000000c serial=MU110000C gib=2048 io=400
lun array2 3  map=mpathc wwid=600601603b20220c0000000000000003 serial=MU2200003 gib=512  io=150
disk vda gib=200 io=20

partition vda1 over=vda
volume mpatha-part1 over=mpatha
volume mpatha-part2 over=mpatha
volume vg0-root over=mpatha-part2
volume vg0-swap over=mpatha-part2
volume vg0-home over=mpatha-part2
volume vg1-data over=mpathb,mpathc
volume vg2-log over=mpathc

mount / vg0-root ext4
mount /boot mpatha-part1 ext4
mount /home vg0-home xfs
mount /data vg1-data xfs
mount "/var/log of applications" vg2-log xfs
mount /scratch vda1 ext4
swap vg0-swap

multipath defaults {
multipath     user_friendly_names yes
multipath     find_multipaths     yes
multipath }
)";

}  // namespace

const char* getDefaultHostSite() {
    return static_cast<const char*>(sText);
}
