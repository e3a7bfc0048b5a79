// The subcommands of integrity_signer, one line each (no include guard: read
// by command.h and command.cpp with their own ICT_SIGNER_COMMAND).
ICT_SIGNER_COMMAND(Dsvm)
ICT_SIGNER_COMMAND(Vds)
