# What a distribution asks of a network service: checked string and memory functions, stack
# protectors, and no writable relocations. Without optimisation the checks do not exist.
add_compile_options(-fstack-protector-strong
                    $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-D_FORTIFY_SOURCE=2>)
add_link_options(-Wl,-z,relro,-z,now)
