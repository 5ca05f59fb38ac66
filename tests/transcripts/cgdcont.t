# The example plug-in answers +CGDCONT itself and asks the modem daemon to create and
# delete contexts; other commands are still relayed.
plugin

> ATE0\r
< \r\nOK\r\n
> AT+CGDCONT?\r
< \r\nOK\r\n
> AT+CGDCONT=3,"ipv6","ims"\r
= 0 7 3,IPV6,ims
< \r\nOK\r\n
> AT+CGDCONT=1,"IP","internet","10.0.0.1",0,0\r
= 0 7 1,IP,internet
< \r\nOK\r\n
> AT+CGDCONT=15, "IPV4V6" ,,,2,4\r
= 0 7 15,IPV4V6,
< \r\nOK\r\n
> AT+CGDCONT=1,"IP","internet.example-1"\r
= 0 7 1,IP,internet.example-1
< \r\nOK\r\n
> AT+cgdcont?\r
< \r\n+CGDCONT: 1,"IP","internet.example-1"\r\n+CGDCONT: 3,"IPV6","ims"\r\n+CGDCONT: 15,"IPV4V6",""\r\n\r\nOK\r\n
> AT+CGDCONT=3\r
= 0 8 3
< \r\nOK\r\n
> AT+CGDCONT=15\r
= 0 8 15
< \r\nOK\r\n
> AT+CGDCONT?;+CSQ\r
= 1 998 AT+CSQ\r
< \r\n+CGDCONT: 1,"IP","internet.example-1"\r\n\r\nOK\r\n\r\nOK\r\n\r\nOK\r\n

# Parameters out of their rules are refused, and nobody is asked.
> AT+CGDCONT=0,"IP","a"\r
< \r\nERROR\r\n
> AT+CGDCONT=16,"IP","a"\r
< \r\nERROR\r\n
> AT+CGDCONT=2a,"IP","a"\r
< \r\nERROR\r\n
> AT+CGDCONT=,"IP","a"\r
< \r\nERROR\r\n
> AT+CGDCONT=2,"PPP","a"\r
< \r\nERROR\r\n
> AT+CGDCONT=2,IP,"a"\r
< \r\nERROR\r\n
> AT+CGDCONT=2,"","a"\r
< \r\nERROR\r\n
> AT+CGDCONT=2,,"a"\r
< \r\nERROR\r\n
> AT+CGDCONT=2,"IP","two words"\r
< \r\nERROR\r\n
> AT+CGDCONT=2,"IP","a\\22b"\r
< \r\nERROR\r\n
> AT+CGDCONT=2,"IP","a","1.2.3.4",3\r
< \r\nERROR\r\n
> AT+CGDCONT=2,"IP","a",,0,5\r
< \r\nERROR\r\n
> AT+CGDCONT=2,"IP","a",,0,0,9\r
< \r\nERROR\r\n
> AT+CGDCONT=2,"IP",\r
< \r\nERROR\r\n
> AT+CGDCONT=2,"IP","a"x\r
< \r\nERROR\r\n
> AT+CGDCONT=2,"IP","unterminated\r
< \r\nERROR\r\n
> AT+CGDCONT=2,"IP","\{100*a}"\r
< \r\nERROR\r\n
> AT+CGDCONT=4,"IP","\{99*a}"\r
= 0 7 4,IP,\{99*a}
< \r\nOK\r\n
> AT+CGDCONT=4\r
= 0 8 4
< \r\nOK\r\n

# Every change waits for the modem daemon's confirmation.
modem result 8
> AT+CGDCONT=5,"IP","other"\r
= 0 7 5,IP,other
< \r\nERROR\r\n
modem short
> AT+CGDCONT=5,"IP","other"\r
= 0 7 5,IP,other
< \r\nERROR\r\n
modem answer
modem result 0
> AT+CGDCONT=5,"ipv4v6","apn.five"\r
= 0 7 5,IPV4V6,apn.five
< \r\nOK\r\n
modem result 8
> AT+CGDCONT=5\r
= 0 8 5
< \r\nERROR\r\n
# Storing the same context again, or removing one that is not there, asks nobody.
> AT+CGDCONT=5,"ipv4v6","apn.five",,0,0\r
< \r\nOK\r\n
> AT+CGDCONT=6\r
< \r\nOK\r\n
modem result 0
> AT+CGDCONT=5\r
= 0 8 5
< \r\nOK\r\n

# Test, active and wrong modes.
> AT+CGDCONT=?\r
< \r\n+CGDCONT: (1-15),"IP",,,(0-2),(0-4)\r\n+CGDCONT: (1-15),"IPV6",,,(0-2),(0-4)\r\n+CGDCONT: (1-15),"IPV4V6",,,(0-2),(0-4)\r\n\r\nOK\r\n
> AT+CGDCONT\r
< \r\nOK\r\n
> AT+CGDCONT?x\r
< \r\nERROR\r\n
