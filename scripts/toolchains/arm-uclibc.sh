#!/usr/bin/env bash
# Builds a C++17 toolchain for 32-bit ARM Linux, hard-float, on uClibc-ng, and libuuid for it, all
# from packages of Debian 12. `scripts/setup.sh uclibc` installs those and calls this.
# usage: toolchains/arm-uclibc.sh            builds it, if it is not there
#        toolchains/arm-uclibc.sh --where    prints the folder that it is in, or would be
#
# The compiler stays Debian's own cross compiler: a wrapper turns it to uClibc, and only the
# libraries are built. The folder lies in $QIV_CACHE, which is ~/.cache/qiv unless set, and has a
# name of its own for each version of this script. A run that finds it does nothing; one that is
# interrupted leaves nothing that another run takes for complete.
set -euo pipefail

script=$(realpath "${BASH_SOURCE[0]}")
cache=$(realpath -m "${QIV_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/qiv}")
hash=$(sha256sum <"$script")
result=$cache/arm-uclibc-${hash:0:12}

debian=arm-linux-gnueabihf
target=arm-linux-uclibcgnueabihf
cpu_flags=(-marm -march=armv7-a+fp -mfloat-abi=hard)
uclibc_source=/usr/src/uClibc-ng-1.0.35.tar.xz
gcc_source=/usr/src/gcc-12/gcc-12.2.0-dfsg.tar.xz

work=$result.part          # everything is made here, and the toolchain moved when it is complete
tools=$work/toolchain
root=$tools/sysroot
gcc_tree=$work/gcc-12.2.0
log=$work/log

# quietly COMMAND...: its output is shown only when it fails.
quietly() {
  if ! "$@" >"$log" 2>&1 </dev/null; then
    tail -n 30 "$log" >&2
    echo "arm-uclibc: failed: $*" >&2
    exit 1
  fi
}

check_packages() {
  local file
  for file in $uclibc_source $gcc_source /usr/bin/$debian-g++ /usr/bin/qemu-arm; do
    if [ ! -e "$file" ]; then
      echo "arm-uclibc: $file is missing: run scripts/setup.sh uclibc" >&2
      exit 1
    fi
  done
}

# The directory of the package also holds the headers of glibc.
install_kernel_headers() {
  local files=$work/kernel-headers
  dpkg -L linux-libc-dev-armhf-cross | sed -n "s|^/usr/$debian/include/\(.*\.h\)$|\1|p" >"$files"
  tar -C /usr/$debian/include -T "$files" -cf - | tar -C "$root/usr/include" -xf -
}

# Without the cache of the loader, which would be the host's under the emulator, and without
# locales, which take a dump of the host's. What is not named takes its default.
write_uclibc_configuration() {
  cat <<END
TARGET_arm=y
CONFIG_ARM_EABI=y
ARCH_WANTS_LITTLE_ENDIAN=y
ARCH_HAS_MMU=y
ARCH_USE_MMU=y
UCLIBC_HAS_FLOATS=y
UCLIBC_HAS_FPU=y
DO_C99_MATH=y
UCLIBC_HAS_LONG_DOUBLE_MATH=y
KERNEL_HEADERS="$root/usr/include"
CROSS_COMPILER_PREFIX="$debian-"
UCLIBC_EXTRA_CFLAGS="${cpu_flags[*]} -w"
RUNTIME_PREFIX="/"
DEVEL_PREFIX="/usr/"
MULTILIB_DIR="lib"
# HARDWIRED_ABSPATH is not set
HAVE_SHARED=y
DOPIC=y
# LDSO_CACHE_SUPPORT is not set
LDSO_RUNPATH=y
LDSO_RUNPATH_OF_EXECUTABLE=y
# LDSO_SAFE_RUNPATH is not set
LDSO_LD_LIBRARY_PATH=y
LDSO_GNU_HASH_SUPPORT=y
UCLIBC_HAS_THREADS_NATIVE=y
MALLOC_STANDARD=y
UCLIBC_DYNAMIC_ATEXIT=y
UCLIBC_SUSV3_LEGACY=y
UCLIBC_SUSV3_LEGACY_MACROS=y
UCLIBC_SUSV4_LEGACY=y
UCLIBC_HAS_STUBS=y
UCLIBC_HAS_PROGRAM_INVOCATION_NAME=y
# UCLIBC_HAS_PROFILING is not set
# UCLIBC_HAS_CRYPT_IMPL is not set
UCLIBC_HAS_IPV6=y
UCLIBC_USE_NETLINK=y
UCLIBC_SUPPORT_AI_ADDRCONFIG=y
UCLIBC_HAS_RESOLVER_SUPPORT=y
UCLIBC_HAS_WCHAR=y
UCLIBC_HAS_LIBICONV=y
# UCLIBC_HAS_LOCALE is not set
UCLIBC_HAS_HEXADECIMAL_FLOATS=y
UCLIBC_HAS_FOPEN_EXCLUSIVE_MODE=y
UCLIBC_HAS_FOPEN_CLOSEEXEC_MODE=y
UCLIBC_HAS_PRINTF_M_SPEC=y
UCLIBC_HAS_GNU_GLOB=y
UCLIBC_BUILD_RELRO=y
UCLIBC_BUILD_NOEXECSTACK=y
DOSTRIP=y
END
}

build_c_library() {
  tar -C "$work" -xf $uclibc_source
  cd "$work"/uClibc-ng-1.0.35
  write_uclibc_configuration >.config
  # Every question that is left is answered by its default.
  quietly bash -c 'yes "" | make ARCH=arm oldconfig'
  quietly make -j"$(nproc)" ARCH=arm
  quietly make ARCH=arm PREFIX="$root" install
}

unpack_gcc_source() {
  tar -C "$work" -xf $gcc_source --wildcards --no-wildcards-match-slash \
    'gcc-*/*.*' 'gcc-*/[a-z]*sh' 'gcc-*/missing' 'gcc-*/compile' 'gcc-*/depcomp' \
    'gcc-*/mkinstalldirs' 'gcc-*/move-if-change' 'gcc-*/config' 'gcc-*/include' 'gcc-*/libgcc' \
    'gcc-*/libiberty' 'gcc-*/libstdc++-v3' \
    'gcc-*/gcc/BASE-VER' 'gcc-*/gcc/DEV-PHASE' 'gcc-*/gcc/DATESTAMP'
  ln -s gthr-posix.h "$gcc_tree"/libgcc/gthr-default.h
  # Weak references to the functions of threads would leave them out of static programs.
  sed -i 's/^#define GTHREAD_USE_WEAK 1$/#define GTHREAD_USE_WEAK 0/' "$gcc_tree"/libgcc/gthr.h
}

# -muclibc selects the loader; the specs give uClibc's headers, behind those of C++, which include
# them; the loader knows no unique symbols; the start files are those of fixed addresses.
make_compiler() {
  local name headers
  headers=$(dirname "$($debian-gcc -print-file-name=libgcc.a)")
  cat >"$root"/uclibc.specs <<END
%rename cc1 old_cc1
%rename cc1plus old_cc1plus

*cc1:
%(old_cc1) -nostdinc %{!nostdinc:-idirafter $headers/include -idirafter %R/usr/include}

*cc1plus:
%(old_cc1plus) %{!nostdinc:%{!nostdinc++:-isystem %R/usr/include/c++/12 -isystem %R/usr/include/c++/12/$target}}

END
  cat >"$tools"/bin/$target-gcc <<END
#!/bin/sh
root=\$(dirname "\$(dirname "\$(readlink -f "\$0")")")/sysroot
exec $debian-\${0##*-} -muclibc --sysroot="\$root" -B"\$root/usr/lib/" -B"\$root/lib/" \\
  -specs="\$root/uclibc.specs" -fno-gnu-unique -fno-pie -no-pie "\$@"
END
  chmod +x "$tools"/bin/$target-gcc
  ln -s $target-gcc "$tools"/bin/$target-g++
  for name in ar as ld nm objcopy objdump ranlib readelf size strip; do
    ln -s /usr/bin/$debian-$name "$tools"/bin/$target-$name
  done
}

# The part of libgcc that programs share: the unwinder. The rest is linked from Debian's archive.
build_unwinder() {
  mkdir "$work"/unwinder
  cd "$work"/unwinder
  touch tconfig.h auto-target.h
  printf '#include <%s.h>\n' stddef stdlib string stdio >tsystem.h
  local libgcc=$gcc_tree/libgcc
  quietly $target-gcc -O2 -fPIC -fexceptions -marm -DIN_LIBGCC2 -DHAVE_CC_TLS -w \
    -I. -I"$libgcc" -I"$libgcc"/config/arm -I"$gcc_tree"/include \
    -shared -nostdlib -Wl,-soname,libgcc_s.so.1 -Wl,-z,defs -s \
    "$libgcc"/config/arm/{unwind-arm.c,pr-support.c,libunwind.S} "$libgcc"/unwind-c.c \
    "$($debian-gcc -print-file-name=libgcc.a)" -lc -o "$root"/lib/libgcc_s.so.1
  echo 'GROUP ( libgcc_s.so.1 -lgcc )' >"$root"/usr/lib/libgcc_s.so
}

# The shared library alone.
build_cxx_library() {
  mkdir "$work"/libstdc++
  cd "$work"/libstdc++
  quietly "$gcc_tree"/libstdc++-v3/configure \
    --build=x86_64-linux-gnu --host=$target --with-cross-host=x86_64-linux-gnu \
    --prefix=/usr --with-gxx-include-dir=/usr/include/c++/12 --disable-multilib --disable-nls \
    --disable-static --disable-libstdcxx-pch --disable-libstdcxx-filesystem-ts \
    CC=$target-gcc CXX="$target-g++ -shared-libgcc -nostdinc++" \
    CFLAGS='-O2 -pipe' CXXFLAGS='-O2 -pipe -D_GNU_SOURCE'
  quietly grep '^#define _GLIBCXX_HAS_GTHREADS 1' config.h
  quietly make -j"$(nproc)" MAKEINFO=true
  quietly make MAKEINFO=true DESTDIR="$root" install
  local built=$root/usr/$target/lib
  mv "$built"/libstdc++.so.6 "$built"/libstdc++.so.6.?.?? "$root"/lib
  mv "$built"/lib*.a "$root"/usr/lib
  ln -s ../../lib/libstdc++.so.6 "$root"/usr/lib/libstdc++.so
  $target-strip "$root"/lib/libstdc++.so.6
  rm -r "${built:?}" "${root:?}"/usr/share
}

# apt checks what it downloads, with a list of sources and folders of its own: the system's stay as
# they are.
download_uuid_source() {
  local attempt folders=(-o Dir::Etc::sourcelist="$PWD"/sources.list -o Dir::Etc::sourceparts=-
    -o Dir::State::lists="$PWD"/lists -o Dir::Cache="$PWD"/cache)
  local mirror
  # shellcheck disable=SC2016  # the fields are apt's
  mirror=$(apt-get indextargets --format '$(REPO_URI) $(RELEASE) $(COMPONENT)' \
    'Created-By: Packages' 'Origin: Debian' 'Codename: bookworm' 'Component: main' | head -n 1)
  echo "deb-src ${mirror:-http://deb.debian.org/debian bookworm main}" >sources.list
  mkdir -p lists/partial cache/archives/partial
  # An index that is just being replaced on the mirror fails for a moment.
  for attempt in 1 2 3; do
    if apt-get "${folders[@]}" update && apt-get "${folders[@]}" source --download-only util-linux
    then
      return 0
    fi
    sleep $((attempt * 5))
  done
  return 1
}

build_uuid_library() {
  mkdir "$work"/uuid
  cd "$work"/uuid
  quietly download_uuid_source
  tar --strip-components=1 -xf util-linux_*.orig.tar.xz --wildcards \
    '*/libuuid/src' '*/lib/*.c' '*/include'
  local have=(ERR ERRX ERR_H GETRANDOM LOFF_T NANOSLEEP NETINET_IN_H NET_IF_H
    PROGRAM_INVOCATION_SHORT_NAME SRANDOM STDLIB_H SYS_FILE_H SYS_IOCTL_H SYS_SOCKET_H
    SYS_SYSCALL_H SYS_TIME_H SYS_UN_H TLS UNISTD_H WARN WARNX)
  quietly $target-gcc -O2 -fPIC -D_GNU_SOURCE "${have[@]/#/-DHAVE_}" -Iinclude \
    -shared -Wl,-soname,libuuid.so.1 -Wl,--version-script=libuuid/src/libuuid.sym -Wl,-z,defs -s \
    libuuid/src/{clear,compare,copy,gen_uuid,isnull,pack,parse,predefined}.c \
    libuuid/src/{unpack,unparse,uuid_time}.c lib/{md5,randutils,sha1}.c \
    -o "$root"/lib/libuuid.so.1
  ln -s ../../lib/libuuid.so.1 "$root"/usr/lib/libuuid.so
  install -D -m 644 libuuid/src/uuid.h "$root"/usr/include/uuid/uuid.h
}

# A C++17 program with threads, exceptions and libuuid runs.
check_toolchain() {
  mkdir "$work"/check
  cd "$work"/check
  cat >check.cpp <<'END'
#include <uuid/uuid.h>

#include <future>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>

int main() {
  auto task = std::async(std::launch::async, []() -> int { throw std::runtime_error("caught"); });
  std::optional<std::string> text;
  try {
    task.get();
  } catch (const std::exception& error) {
    text = error.what();
  }
  uuid_t uuid;
  uuid_generate(uuid);
  std::cout << "thrown: " << text.value_or("nothing") << '\n';
  return text == "caught" && uuid_is_null(uuid) == 0 ? 0 : 1;
}
END
  quietly $target-g++ -std=c++17 -O2 check.cpp -luuid -o check
  quietly timeout 60 qemu-arm -L "$root" ./check
}

build_toolchain() {
  check_packages
  mkdir -p "$cache"
  exec 9>"$cache"/arm-uclibc.lock  # one at a time; another run finds the result
  flock 9
  [ ! -e "$result" ] || return 0
  echo "arm-uclibc: building the toolchain in $result (some minutes)"
  rm -rf "$work"
  mkdir -p "$tools"/bin "$root"/lib "$root"/usr/lib "$root"/usr/include
  export LC_ALL=C PATH=$tools/bin:$PATH
  install_kernel_headers
  build_c_library
  unpack_gcc_source
  make_compiler
  build_unwinder
  build_cxx_library
  build_uuid_library
  ln -s /usr/include/boost "$root"/usr/include/boost
  check_toolchain
  mv "$tools" "$result"
  rm -rf "$work"
}

case ${1:-} in
  --where) echo "$result" ;;
  '') [ -e "$result" ] || build_toolchain ;;
  *)
    echo "usage: toolchains/arm-uclibc.sh [--where]" >&2
    exit 2
    ;;
esac
