# cmake -DPAGE=<help2man's page> -DOUTPUT=<page> -P VellmarkManPageSections.cmake
# help2man makes a sub-section of the help's "Exit status:" paragraph; a manual page has
# the section EXIT STATUS for it.
file(READ ${PAGE} text)
string(REPLACE ".SS \"Exit status:\"" ".SH \"EXIT STATUS\"" text "${text}")
file(WRITE ${OUTPUT} "${text}")
