/* Share flags of _fsopen. */
#ifndef TSPLATFORM_SHARE_H
#define TSPLATFORM_SHARE_H

#define _SH_DENYRW 0x10 /* deny read and write */
#define _SH_DENYWR 0x20 /* deny write */
#define _SH_DENYRD 0x30 /* deny read */
#define _SH_DENYNO 0x40 /* deny nothing */

#endif /* TSPLATFORM_SHARE_H */
