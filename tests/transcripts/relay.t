# AT+RELAY chooses the modem that later commands go to; a reload brings back the store's.
store KERV_MODEMD_TARGET_TYPE=23G
modem AT+CSQ => \r\n+CSQ: 20,99\r\n\r\nOK\r\n

> ATE0\r
< \r\nOK\r\n
> AT+CSQ\r
= 16 998 AT+CSQ\r
< \r\n+CSQ: 20,99\r\n\r\nOK\r\n
> AT+RELAY?\r
< \r\nOK\r\n
> at+relay=lte\r
< \r\nOK\r\n
> AT+CSQ\r
= 1 998 AT+CSQ\r
< \r\n+CSQ: 20,99\r\n\r\nOK\r\n
> AT+RELAY=23g\r
< \r\nOK\r\n
> AT+RELAY=4G\r
< \r\nERROR\r\n
> AT+RELAY=L\r
< \r\nERROR\r\n
> AT+CSQ\r
= 16 998 AT+CSQ\r
< \r\n+CSQ: 20,99\r\n\r\nOK\r\n
# Three characters count, in any case; blanks before them are skipped.
> AT+RELAY=LtEX\r
< \r\nOK\r\n
> AT+RELAY= 23G\r
< \r\nOK\r\n
> ATRELAY=LTE\r
< \r\nOK\r\n
> AT+RELAY=?\r
< \r\nOK\r\n
> AT+RELAY\r
< \r\nOK\r\n
> AT+RELAY?x\r
< \r\nERROR\r\n
> AT+RELAY=23G;+RELAY?\r
< \r\nOK\r\n\r\nOK\r\n\r\nOK\r\n
# The relay command itself never reaches a modem; what follows it on the line does.
> AT+CSQ;V1\r
= 16 998 AT+CSQ\r
= 16 998 V1\r
< \r\n+CSQ: 20,99\r\n\r\nOK\r\n\r\nOK\r\n\r\nOK\r\n

> AT+RELAY=LTE\r
< \r\nOK\r\n
reload
> AT+CSQ\r
= 16 998 AT+CSQ\r
< \r\n+CSQ: 20,99\r\n\r\nOK\r\n
# A reload reads the store afresh.
store KERV_MODEMD_TARGET_TYPE=lte
reload
> AT+CSQ\r
= 1 998 AT+CSQ\r
< \r\n+CSQ: 20,99\r\n\r\nOK\r\n

# Without KERV_PROMPT_COMMANDS a two-step command is an ordinary line: no prompt, and a
# text ended by Ctrl-Z alone ends no line.
> AT+CMGS=19\r
= 1 998 AT+CMGS=19\r
< \r\nOK\r\n
> 0011\x1a
