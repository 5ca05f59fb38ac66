# kervctl against the daemon: each command's output and exit status, and STOP and START.
only tcp
store KERV_URC_LISTEN_ENABLE=1
store KERV_DEBUG=4
modem AT+CSQ => \r\n+CSQ: 17,99\r\n\r\nOK\r\n
modem AT+COPS? => \r\n+CME ERROR: 30\r\n

kervctl hash +CSQ => 0 hash_value1=[5071], hash_value2=[0]\n
kervctl hash AT => 1 ERROR\n
kervctl reload => 0 RELOAD...\n
kervctl frobnicate => 64

# A URC without a host is dropped (the worker says so at debug level 4).
hangup
urc \r\n+EARLY\r\n
log 1 no host for the URC, dropped

# at prints each answer and stops after the first line that fails (kervctl is the host).
kervctl at ATE1 AT+CSQ => 0 ATE1\r\r\nOK\r\nAT+CSQ\r\r\n+CSQ: 17,99\r\n\r\nOK\r\n
= 1 998 AT+CSQ\r
kervctl at AT+COPS? ATE1 => 1 AT+COPS?\r\r\n+CME ERROR: 30\r\n
= 1 998 AT+COPS?\r

# at reads as many final result codes as the daemon gives the line as it splits it: one a
# command, one more for a line that goes on, none for text without a command.
kervctl at ATE1;V1;+CREG? => 0 ATE1\r\r\nOK\r\nV1\r\r\nOK\r\nAT+CREG?\r\r\nOK\r\n\r\nOK\r\n
= 1 998 V1\r
= 1 998 AT+CREG?\r
kervctl at xyzATE1 => 0 ATE1\r\r\nOK\r\n
kervctl at hello => 1
kervctl at AT+X="a;b";E1 => 0 AT+X="a;b"\r\r\nOK\r\nE1\r\r\nOK\r\n\r\nOK\r\n
= 1 998 AT+X="a;b"\r
kervctl at ATE1;AB => 1 ATE1\r\r\nOK\r\n\r\nERROR\r\n
kervctl at ATE1;A/;E1 => 1 ATE1\r\r\nOK\r\n\r\nERROR\r\n
kervctl at AT+CGDCONT=1,"IP","internet.example.long";ATE1 => 1 AT+CGDCONT=1,"IP","internet.example.long"\r\r\nOK\r\n\r\nERROR\r\n
= 1 998 AT+CGDCONT=1,"IP","internet.example.long"\r
kervctl at AT+CGDCONT=1,"IP","internet.example.long";E1 => 0 AT+CGDCONT=1,"IP","internet.example.long"\r\r\nOK\r\nE1\r\r\nOK\r\n\r\nOK\r\n
= 1 998 AT+CGDCONT=1,"IP","internet.example.long"\r
kervctl at ATE1;AT+CGDCONT=1,"IP","internet.example.long" => 1 \r\nERROR\r\n
kervctl at ATE1;\{38*x} => 0 ATE1\r\r\nOK\r\nATxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx\r\r\nOK\r\n\r\nOK\r\n
= 1 998 ATxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx\r
kervctl at ATE1;\{39*x} => 1 \r\nERROR\r\n
kervctl at AT\{1021*;} => 1 \r\nERROR\r\n

# A URC reaches the connected host.
reconnect
> ATE1\r
< ATE1\r\r\nOK\r\n
kervctl urc \r\n+CREG:\x205\r\n => 0
< \r\n+CREG: 5\r\n

# STOP closes the host's connection and the channel before it returns; STOP again and
# START find nothing to close, and each says so. The control socket keeps working.
kervctl stop => 0
kervctl at ATE1 => 2
kervctl stop => 0
kervctl start => 0
log 3 kerv_deinit\n
log 1 close new_fd.\n
log 2 kerv is NULL
kervctl hash E => 0 hash_value1=[5], hash_value2=[0]\n
urc RING
kervctl reload => 0 RELOAD...\n
end
kervctl hash +CSQ => 2
