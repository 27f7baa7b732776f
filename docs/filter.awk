# Lets Doxygen read the headers as they are: a plain comment directly above a declaration describes
# it, and one behind it on its line does so too.
#
# A comment above several declarations that have no body and no gap between them describes them
# all. A destructor, and what is defaulted or deleted, needs none. Bodies stay as they are.

{ lines[NR] = $0 }

# The line without its comment.
function code(line) {
   sub(/(^| +)\/\/( .*)?$/, "", line)
   return line
}

# Whether the declaration that starts on this line ends without a body.
function hasNoBody(i,   text, at, c, parentheses) {
   for (; i <= NR; ++i) {
      text = code(lines[i])
      for (at = 1; at <= length(text); ++at) {
         c = substr(text, at, 1)
         parentheses += (c == "(") - (c == ")")
         if (parentheses == 0 && (c == ";" || c == "{")) {
            return c == ";"
         }
      }
   }
   return 0
}

# Prints the comment for Doxygen.
function describe(   i) {
   for (i = 1; i <= count; ++i) {
      print comment[i]
   }
}

# Follows the braces: describable[depth] tells a namespace, a class or an enumeration from a body.
function follow(text,   at, c) {
   for (at = 1; at <= length(text); ++at) {
      c = substr(text, at, 1)
      if (c == "{") {
         describable[depth + 1] = describable[depth] && statement ~ \
            /^ *(template ?<.*> *)?(inline )?(namespace|class|struct|enum|union) /
         ++depth
         statement = ""
      } else if (c == "}") {
         --depth
         statement = ""
      } else if (c == ";") {
         statement = ""
      } else {
         statement = statement c
      }
   }
}

END {
   depth = 0
   describable[depth] = 1
   for (i = 1; i <= NR; ++i) {
      line = lines[i]
      isMacro = line ~ /^#/ || inMacro
      isStart = statement == "" && !inMacro
      inMacro = isMacro && line ~ /\\$/

      if (line ~ /^ *\/\//) {
         if (!describable[depth] || !isStart || line ~ /NOLINT/) {
            print line
            continue
         }
         if (!isOpen) {
            count = 0
         }
         isOpen = 1
         comment[++count] = line
         sub(/\/\//, "///", comment[count])
         continue
      }
      if (line == "#pragma once") {
         print "/// @file"
         describe()
         print line
         count = isOpen = 0
         continue
      }
      isShort = line ~ / = (default|delete);$/ || line ~ /^ *(virtual )?~.*;$/
      if (line ~ /^ *$/ || line ~ /^ *}/ || line ~ /^ *(public|protected|private):$/) {
         count = isOpen = 0
      } else if (describable[depth] && isStart) {
         if (isOpen) {
            describe()
         } else if (isShort) {
            print ""
            continue
         } else if (count && hasNoBody(i)) {
            describe()
         } else {
            count = 0
         }
         isOpen = 0
         if (!hasNoBody(i)) {
            count = 0
         }
      }
      if (!isMacro) {
         if (describable[depth]) {
            sub(/ \/\/ /, " ///< ", line)
         }
         text = code(lines[i])
         if (text ~ /^ *(public|protected|private):$/ || text ~ /^ *TESSEL_ENTITY\( [A-Za-z]* \)$/) {
            text = ""
         }
         gsub(/^ +/, statement == "" ? "" : " ", text)
         follow(text)
      }
      print line
   }
}
