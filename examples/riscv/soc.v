// The core, its memory and three peripherals on one read bus.
//
//   0000_0000  memory
//   1000_0000  uart        1000_0100  timer        1000_0200  gpio
`timescale 1ns / 1ns

module soc #(
    parameter MEMORY_WORDS = 4096,
    parameter PINS = 8
) (
    input  wire            clk,
    input  wire            reset,
    input  wire            resume,
    output wire            uart_line,
    inout  wire [PINS-1:0] pads,
    output wire            env_call,
    output wire            halted,
    output wire            retired,
    output wire            fault
);
    reg [31:0] memory [0:MEMORY_WORDS-1];

    wire [31:0] fetch_address;
    wire [31:0] fetch_data = memory[fetch_address[31:2] % MEMORY_WORDS];
    wire [31:0] address;
    wire        read;
    wire [3:0]  write_lanes;
    wire [31:0] write_data;

    // Whoever is selected drives the bus; between accesses it floats.
    tri  [31:0] read_bus;

    wire write = write_lanes != 4'd0;
    wire access = read || write;
    wire in_memory = access && address[31:28] == 4'd0;
    wire in_peripherals = access && address[31:28] == 4'd1;
    wire select_uart = in_peripherals && address[11:8] == 4'd0;
    wire select_timer = in_peripherals && address[11:8] == 4'd1;
    wire select_gpio = in_peripherals && address[11:8] == 4'd2;
    wire \irq/timer ;

    wire [31:0] memory_index = address[31:2] % MEMORY_WORDS;
    assign read_bus = in_memory && read ? memory[memory_index] : 32'bz;

    genvar lane;
    generate
        for (lane = 0; lane < 4; lane = lane + 1) begin : memory_lane
            wire [7:0] value = write_data[8*lane +: 8];
            wire       enable = in_memory && write_lanes[lane];
            always @(posedge clk) if (enable) memory[memory_index][8*lane +: 8] <= value;
        end
    endgenerate

    core #(.RESET_PC(32'h0000_0000)) cpu (
        .clk(clk), .reset(reset), .fetch_address(fetch_address), .fetch_data(fetch_data),
        .address(address), .read(read), .write_lanes(write_lanes), .write_data(write_data),
        .read_data(read_bus), .env_call(env_call), .halted(halted), .resume(resume),
        .retired(retired), .fault(fault));

    uart serial (
        .clk(clk), .reset(reset), .select(select_uart), .offset(address[7:0]), .write(write),
        .write_data(write_data), .read_data(read_bus), .line(uart_line));

    timer #(.PRESCALE(64)) clock (
        .clk(clk), .reset(reset), .select(select_timer), .offset(address[7:0]), .write(write),
        .write_data(write_data), .read_data(read_bus), .expired(\irq/timer ));

    gpio #(.PINS(PINS)) pins (
        .clk(clk), .reset(reset), .select(select_gpio), .offset(address[7:0]), .write(write),
        .write_data(write_data), .read_data(read_bus), .pads(pads));
endmodule
