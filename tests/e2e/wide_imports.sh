#!/usr/bin/env bash
# A 32-bit program imports only the 64-bit variants of the file and time
# functions: a narrow one would refuse files of 2 GiB or more, or dates
# after January 2038. Usage: wide_imports.sh PROGRAM
set -u
imports=$(nm -D --undefined-only "$1" | awk '{print $2}' | sed 's/@.*//')
narrow=$(grep -xE 'open|openat|creat|fopen|freopen|fseeko?|ftello?|lseek|f?truncate|f?stat|lstat|fstatat|(f|l)?stat64|__(f|l)?xstat(64)?|mmap|time|(local|gm)time(_r)?|mktime|ctime(_r)?|difftime|clock_gettime|gettimeofday|fcntl|utimes?|futimens' <<< "$imports")
missing=
for wide in open64 fopen64 __fstat64_time64 __time64 __localtime64_r; do
    grep -qx "$wide" <<< "$imports" || missing+=" $wide"
done
if [ -n "$narrow$missing" ]; then
    echo "narrow imports:" $narrow
    echo "wide imports missing:$missing"
    echo "0 passed, 1 failed"
    exit 1
fi
echo "1 passed, 0 failed"
