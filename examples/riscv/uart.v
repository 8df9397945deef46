// Serial transmitter: one start bit, eight data bits, one stop bit.
//
//   offset 0  write: byte to send, ignored while busy    read: bit 0 is busy
//   offset 4  clock cycles a bit
`timescale 1ns / 1ns

module uart #(
    parameter DIVIDER_BITS = 12
) (
    input  wire        clk,
    input  wire        reset,
    input  wire        select,
    input  wire [7:0]  offset,
    input  wire        write,
    input  wire [31:0] write_data,
    inout  wire [31:0] read_data,
    output wire        line
);
    localparam FRAME_BITS = 10;

    reg [DIVIDER_BITS-1:0] divider;
    reg [DIVIDER_BITS-1:0] baud_count;
    reg [FRAME_BITS-1:0]   frame;
    reg [3:0]              bits_left;

    wire busy = bits_left != 4'd0;
    wire bit_ends = baud_count == divider - 1'b1;

    assign line = frame[0];
    assign read_data = select && !write
                     ? (offset[2] ? {{(32 - DIVIDER_BITS){1'b0}}, divider} : {31'd0, busy})
                     : 32'bz;

    always @(posedge clk) begin
        if (reset) begin
            divider <= 16;
            baud_count <= 0;
            frame <= {FRAME_BITS{1'b1}};
            bits_left <= 4'd0;
        end else begin
            if (select && write && offset[2]) divider <= write_data[DIVIDER_BITS-1:0];
            if (busy) begin
                baud_count <= bit_ends ? 0 : baud_count + 1'b1;
                if (bit_ends) begin
                    frame <= {1'b1, frame[FRAME_BITS-1:1]};
                    bits_left <= bits_left - 4'd1;
                end
            end else if (select && write && !offset[2]) begin
                frame <= {1'b1, write_data[7:0], 1'b0};
                bits_left <= FRAME_BITS;
                baud_count <= 0;
            end
        end
    end
endmodule
