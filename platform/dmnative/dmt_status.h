/// @file
/// Status codes of the engine, numbered as the DM protocol numbers them.
#pragma once

/// What an operation answers. Codes from 404 on are those of the DM protocol; an engine hands them
/// on to the server, which gets 500 for a code that the protocol does not have.
enum DmtStatus : int {
    DMT_OK = 0,                      ///< done
    DMT_FAILED = 1,                  ///< a plug-in's own refusal; the engine answers 500 for it
    DMT_NOT_FOUND = 404,             ///< no node at that path
    DMT_NOT_ALLOWED = 405,           ///< the command does not apply to this kind of node
    DMT_FEATURE_NOT_SUPPORTED = 406, ///< optional feature missing; a root that a plug-in lacks
    DMT_UNSUPPORTED_FORMAT = 415,    ///< a value of another type than the one asked for
    DMT_ALREADY_EXISTS = 418,        ///< the target of an add or a rename is there already
    DMT_COMMAND_FAILED = 500,        ///< any other failure, such as a node whose tree is gone
};
