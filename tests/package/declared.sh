# The names that a folder of headers exports: of classes every member that is not private, and what is marked by itself.
declared() {
    cat "$1"/*.h | awk '
        { sub(/\/\/.*/, "") }
        /^class [A-Z]+_EXPORT / { class = $3; shown = 0 }
        /^};/ { class = "" }
        /^ *(public|protected):/ { shown = 1 }
        /^ *private:/ { shown = 0 }
        class != "" && shown && !/= (delete|default)|[{]/ && !/^ *using / && match($0, /(operator [a-z]+|~?[A-Za-z0-9_]+)\(/) {
            print class "::" substr($0, RSTART, RLENGTH - 1)
        }
        class == "" && /_EXPORT / && !/^(#|class )/ && match($0, /[A-Za-z0-9_]+(\(|;)/) {
            print substr($0, RSTART, RLENGTH - 1)
        }' | sort -u
}
