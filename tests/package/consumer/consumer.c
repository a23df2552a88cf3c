/* A program built against the installed library: it compiles with the
 * installed headers, links libTarvo and calls into it. */
#include <tarvo/tarvo.h>

#include <stdio.h>
#include <string.h>

int main(void)
{
    static JmdContext context;
    JpegMDInitial(&context);
    if (pfGetPKey(1) != 4098 || strcmp(rbMediaStr[0], "JPG") != 0)
        return 1;
    puts("consumer: libTarvo linked and called");
    return 0;
}
