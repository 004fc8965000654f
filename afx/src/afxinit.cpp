// Framework start-up pieces come here.
#include <afx.h>
