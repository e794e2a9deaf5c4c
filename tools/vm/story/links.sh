# shellcheck shell=dash
# Links, remote ports and hosts, come and go.

say 'Two hosts are made, and find each other'
make_host vf0
make_host vf1
until_is both Online Online
know_hosts

say 'The agent starts, and finds both'
start_agent
indented sed 's/^/initiator: /' seen

say 'The link goes down'
ip link set vf0 down
until_is both Linkdown Blocked
expect 'both link - 1' 'both rscn peer 1' 'both port_interrupt_error - 1'

say 'The link comes up, by way of offline, which a look may miss'
ip link set vf0 up
until_is both Online Online
expect 'both link - 1 2' 'both rscn peer 1'

say 'A loop initialisation is asked for at vf0: it comes back alone, and the remote ports are given up'
for host in /sys/class/fc_host/host*; do
    echo 2 >"$host/dev_loss_tmo"
done
echo 1 >"$(echo /sys/class/net/vf0/ctlr_*/host*/fc_host/host*)/issue_lip"
until_is both Online -
expect 'vf0 link - 1 2' 'both rscn peer 2'

say 'The link goes down'
ip link set vf0 down
until_is both Linkdown -
expect 'both link - 1' 'both port_interrupt_error - 1'

say 'The link comes up, with new remote ports'
ip link set vf0 up
until_is both Online Online
expect 'both link - 1 2' 'both rscn peer 1'

say 'vf0 is destroyed, and given up by vf1'
destroy_host vf0
until_is state vf1 Online -
# A look may see vf0 while it is taken away.
expect 'vf0 link - 1 2' 'vf0 rscn peer 1 2' 'vf1 rscn peer 2'

say 'vf0 is made again, and is the same adapter; the link goes down and up, for only then do they find each other'
make_host vf0
until_is state vf0 Online -
ip link set vf0 down
until_is both Linkdown -
ip link set vf0 up
until_is both Online Online
expect 'vf0 adapter_arrival - 1' 'vf0 link - 2 5' 'vf1 link - 2 3' 'both port_interrupt_error - 1' 'both rscn peer 1'

say 'The agent is told to end, and leaves nothing but its log'
end_agent

for interface in vf0 vf1; do
    destroy_host "$interface"
done
