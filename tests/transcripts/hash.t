# Command-name hashes, as the control socket's GEN_HASH answers them.
hash +CSQ => hash_value1=[5071], hash_value2=[0]
hash +CGDCONT => hash_value1=[6645417], hash_value2=[552]
hash AT+cgdcont=1 => hash_value1=[6645417], hash_value2=[552]
hash   at+CgDcOnT? => hash_value1=[6645417], hash_value2=[552]
hash +RELAY => hash_value1=[37824199], hash_value2=[0]
hash ATE0 => hash_value1=[217], hash_value2=[0]
hash ATE9 => hash_value1=[226], hash_value2=[0]
hash V1 => hash_value1=[864], hash_value2=[0]
hash E => hash_value1=[5], hash_value2=[0]
hash ^SYSINFO => hash_value1=[120252344], hash_value2=[243]
hash %X => hash_value1=[158470360], hash_value2=[0]
hash $X => hash_value1=[237705528], hash_value2=[0]
hash +^X => hash_value1=[79235192], hash_value2=[0]
# The second value prints signed; eleven characters count; '#' repeats the one before.
hash ABCDE999999 => hash_value1=[2199369], hash_value2=[-1365407572]
hash ABCDEFGHIJKLMNOP => hash_value1=[2199369], hash_value2=[490459323]
hash +C#Q => hash_value1=[4463], hash_value2=[0]
hash +CSQ\r => hash_value1=[192715], hash_value2=[0]
hash AT=1 => hash_value1=[0], hash_value2=[0]
# Names without a hash, and no name at all.
hash AT => ERROR
hash   AT => ERROR
hash AT+ => ERROR
hash at^ => ERROR
hash AT#X => ERROR
hash + CSQ => ERROR
hash  => ERROR
hash - => ERROR
