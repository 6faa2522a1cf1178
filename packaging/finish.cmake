# Run by cpack on the installed files before it packs them: what differs between the two kinds of package, and what
# makes two builds the same.

set(root ${CPACK_TEMPORARY_DIRECTORY})
set(documents ${root}/usr/share/doc/tamrix)

if(CPACK_GENERATOR STREQUAL DEB)
  configure_file(${TAMRIX_CHANGELOG} ${documents}/changelog COPYONLY)
  configure_file(${TAMRIX_PACKAGING}/debian/lintian-overrides ${root}/usr/share/lintian/overrides/tamrix COPYONLY)
else()
  # Of OpenSSL, whose code the program holds; on Debian every system has it.
  configure_file(/usr/share/common-licenses/Apache-2.0 ${root}/usr/share/licenses/tamrix/Apache-2.0 COPYONLY)
  file(MAKE_DIRECTORY ${root}/usr/share/zsh/site-functions)
  file(RENAME ${root}/usr/share/zsh/vendor-completions/_tamrix ${root}/usr/share/zsh/site-functions/_tamrix)
  file(REMOVE_RECURSE ${root}/usr/share/zsh/vendor-completions)
endif()

file(GLOB to_compress ${root}/usr/share/man/man*/* ${documents}/changelog)
execute_process(COMMAND gzip -9n ${to_compress} COMMAND_ERROR_IS_FATAL ANY)

# As the packing tools of both kinds would, so that both hold the same program.
execute_process(COMMAND strip --strip-unneeded --remove-section=.comment --remove-section=.note
  ${root}/opt/ovt/admin/sbin/tamrix COMMAND_ERROR_IS_FATAL ANY)

# No umask of the builder's and no time but that of the release.
execute_process(COMMAND chmod -R u=rwX,go=rX ${root} COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND find ${root} -exec touch -h -d @$ENV{SOURCE_DATE_EPOCH} {} +
  COMMAND_ERROR_IS_FATAL ANY)
