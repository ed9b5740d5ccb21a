// Every FFmpeg function that the addon calls, one a line, in the order in which they are
// resolved. Included with SYMBOL(library, name) defined; undefined again at the end. There is
// no include guard on purpose.
#ifndef SYMBOL
#error "define SYMBOL(library, name) first"
#endif

// clang-format off
SYMBOL(avcodec, avcodec_version)
SYMBOL(avcodec, avcodec_find_encoder_by_name)
SYMBOL(avcodec, avcodec_find_encoder)
SYMBOL(avcodec, avcodec_alloc_context3)
SYMBOL(avcodec, avcodec_free_context)
SYMBOL(avcodec, avcodec_open2)
SYMBOL(avcodec, avcodec_parameters_from_context)
SYMBOL(avcodec, avcodec_send_frame)
SYMBOL(avcodec, avcodec_receive_packet)
SYMBOL(avcodec, av_packet_alloc)
SYMBOL(avcodec, av_packet_free)
SYMBOL(avcodec, av_packet_unref)
SYMBOL(avcodec, av_packet_rescale_ts)
SYMBOL(avformat, avformat_version)
SYMBOL(avformat, avformat_alloc_output_context2)
SYMBOL(avformat, avformat_new_stream)
SYMBOL(avformat, avformat_write_header)
SYMBOL(avformat, av_interleaved_write_frame)
SYMBOL(avformat, av_write_trailer)
SYMBOL(avformat, avformat_free_context)
SYMBOL(avformat, avio_open)
SYMBOL(avformat, avio_closep)
SYMBOL(avutil, avutil_version)
SYMBOL(avutil, av_strerror)
SYMBOL(avutil, av_frame_alloc)
SYMBOL(avutil, av_frame_free)
SYMBOL(avutil, av_frame_get_buffer)
SYMBOL(avutil, av_frame_make_writable)
SYMBOL(avutil, av_dict_set)
SYMBOL(avutil, av_dict_free)
SYMBOL(avutil, av_opt_set)
SYMBOL(avutil, av_rescale_q)
SYMBOL(avutil, av_buffer_ref)
SYMBOL(avutil, av_buffer_unref)
SYMBOL(avutil, av_hwdevice_ctx_create)
SYMBOL(avutil, av_hwframe_ctx_alloc)
SYMBOL(avutil, av_hwframe_ctx_init)
SYMBOL(avutil, av_hwframe_get_buffer)
SYMBOL(avutil, av_hwframe_transfer_data)
SYMBOL(avutil, av_log_get_level)
SYMBOL(avutil, av_log_set_level)
// clang-format on

#undef SYMBOL
